#pragma once

#include "capture/OverlayPanel.h"

#include <QFont>
#include <QPointer>

#include <optional>

namespace pixmora {

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
    bool showsLabel() const { return m_showsLabel; }
    // Redraws where the old and the new outline are, nothing else.
    void setHighlighted(std::optional<WindowInfo> window, bool withLabel);

    // "<application> — <title>"; "Window" stands in for a missing application name.
    static QString labelText(const WindowInfo &window);

    struct LabelGeometry {
        QRectF capsule;
        QRectF text;  // narrower than the text's own width when the label is cut
    };
    // Centred on the outline's visible part; the text is at most its width less 24 points.
    static LabelGeometry labelGeometry(QSizeF textSize, const QRectF &visibleOutline);

    void paint(QPainter &painter) override;

protected:
    QRegion decorations() const override;
    void keyPressEvent(QKeyEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    // The highlighted window as drawn, in view coordinates.
    struct Outline {
        QRectF frame;
        std::optional<LabelGeometry> label;
        QString text;
    };
    // Nothing when the window does not reach this display.
    std::optional<Outline> outlineFor(const WindowInfo &window, bool withLabel) const;
    // Where drawing the outline touches the view, stroke and antialiasing included.
    static QRect areaOf(const std::optional<Outline> &outline);

    const QPointer<WindowPickerController> m_picker;
    Desktop &m_desktop;
    QFont m_labelFont;
    std::optional<WindowInfo> m_highlighted;
    bool m_showsLabel = false;
    std::optional<Outline> m_outline;
};

} // namespace pixmora
