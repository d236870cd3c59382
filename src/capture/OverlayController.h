#pragma once

#include <QList>
#include <QObject>
#include <QPoint>

#include <functional>
#include <vector>

namespace pixmora {

class Desktop;
class OverlayPanel;

// What the area overlay and the window picker share: a panel over every
// display while the user chooses. The panels come up together and the one
// under the pointer takes the keyboard; when the choice is made they go, and
// the window that was active before gets the focus back. A display that goes
// away meanwhile cancels, since its panel would be left over nothing.
class OverlayController : public QObject {
    Q_OBJECT

public:
    // The pointer in global points.
    using CursorPosition = std::function<QPoint()>;

    ~OverlayController() override;

    // Ends the overlay as Escape does.
    virtual void cancel() = 0;

    bool isFinished() const { return m_closed; }
    QPoint cursorPosition() const { return m_cursorPosition(); }

protected:
    // cursorPosition: QCursor::pos unless given.
    OverlayController(Desktop &desktop, CursorPosition cursorPosition);

    // Shows the panels, which are owned from now on, and gives the keyboard
    // to the one under the pointer, else to the first.
    void cover(std::vector<OverlayPanel *> panels);
    // Hides the panels and gives the focus back. Usually called from inside
    // a panel's event handler, so the panels are deleted once it has
    // returned. False when already closed: only the first choice counts.
    bool close();

    // The panels as the derived controller made them.
    template <typename View>
    QList<View *> panelsAs() const
    {
        QList<View *> views;
        for (OverlayPanel *panel : m_panels)
            views.append(static_cast<View *>(panel));
        return views;
    }
    Desktop &desktop() const { return m_desktop; }

private:
    Desktop &m_desktop;
    const CursorPosition m_cursorPosition;
    std::vector<OverlayPanel *> m_panels;
    quint64 m_previousWindow = 0;
    bool m_closed = false;
};

} // namespace pixmora
