#pragma once

#include "capture/DisplaySnapshots.h"
#include "capture/OverlayPanel.h"
#include "platform/Displays.h"

#include <QFont>
#include <QObject>
#include <QPointer>

#include <functional>
#include <optional>
#include <vector>

namespace pixmora {

class Desktop;
class WindowPickerController;

// One display's picker panel: shows the desktop lightly dimmed and outlines
// the highlighted window with a label naming it. Clicks pick the window under
// the pointer; Escape cancels.
class WindowPickerView : public OverlayPanel {
    Q_OBJECT

public:
    // backdrop: the display as it looked when the picker opened (device pixels).
    WindowPickerView(WindowPickerController &picker, Desktop &desktop, const DisplayInfo &display, QImage backdrop);

    const std::optional<WindowInfo> &highlighted() const { return m_highlighted; }
    // Redraws where the old and the new outline are, nothing else.
    void setHighlighted(std::optional<WindowInfo> window);

    // "<application> — <title>"; "Window" stands in for a missing application name.
    static QString labelText(const WindowInfo &window);

    struct LabelGeometry {
        QRectF capsule;
        QRectF text;  // narrower than the text's own width when the label is cut
    };
    // Centred on the outline; the text is at most the outline's width less 24 points.
    static LabelGeometry labelGeometry(QSizeF textSize, const QRectF &outline);

    void paint(QPainter &painter) override;

protected:
    QRegion decorations() const override;
    bool event(QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    // The highlighted window as drawn, in view coordinates.
    struct Outline {
        QRectF frame;
        LabelGeometry label;
        QString text;
    };
    Outline outlineFor(const WindowInfo &window) const;
    // Where drawing the outline touches the view, stroke and antialiasing included.
    static QRect areaOf(const std::optional<Outline> &outline);

    const QPointer<WindowPickerController> m_picker;
    Desktop &m_desktop;
    QFont m_labelFont;
    std::optional<WindowInfo> m_highlighted;
    std::optional<Outline> m_outline;
};

// Covers every display with a panel, outlines the candidate window under the
// pointer and reports the one clicked, or nothing.
//
// The panels show a frozen image of each display rather than being see-through:
// without a compositing manager, X11 cannot show the desktop through a window.
class WindowPickerController : public QObject {
    Q_OBJECT

public:
    using Completion = std::function<void(std::optional<WindowInfo>)>;
    using CursorPosition = std::function<QPoint()>;

    // Windows topmost first, as the window list gives them. cursorPosition
    // reports the pointer in global points (QCursor::pos unless given).
    WindowPickerController(WindowList windows, DisplayList displays, DisplaySnapshots backdrops, Desktop &desktop,
                           Completion completion, CursorPosition cursorPosition = {});
    ~WindowPickerController() override;

    // The windows that can be picked, in the given order.
    const WindowList &candidates() const { return m_candidates; }
    const std::vector<WindowPickerView *> &panels() const { return m_panels; }

    void begin();
    // The first candidate whose frame contains the point.
    std::optional<WindowInfo> windowUnder(QPointF globalPoint) const;
    void updateHighlight();
    QPoint cursorPosition() const { return m_cursorPosition(); }
    // Closes the picker and calls the completion; only the first call counts.
    void finish(std::optional<WindowInfo> window);

private:
    std::vector<WindowPickerView *> m_panels;
    Completion m_completion;
    bool m_finished = false;
    const WindowList m_candidates;
    const DisplayList m_displays;
    DisplaySnapshots m_backdrops;
    quint64 m_previousWindow = 0;
    Desktop &m_desktop;
    const CursorPosition m_cursorPosition;
};

} // namespace pixmora
