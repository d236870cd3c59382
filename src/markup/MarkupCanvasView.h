#pragma once

#include "markup/MarkupDocument.h"
#include "markup/MarkupTool.h"

#include <QImage>
#include <QLineEdit>
#include <QPointer>
#include <QWidget>

#include <functional>
#include <optional>
#include <vector>

namespace pixmora {

// The markup editor's drawing area: the capture fitted into the view and
// centred, the annotations over it, and the gestures that make and edit
// them. The shape being dragged out and the text being typed stay here until
// they are finished; everything else is the document's.
class MarkupCanvasView : public QWidget {
    Q_OBJECT

public:
    explicit MarkupCanvasView(QImage image, QWidget *parent = nullptr);
    ~MarkupCanvasView() override;

    const MarkupDocument &document() const { return m_document; }

    MarkupTool tool() const { return m_tool; }
    void setTool(MarkupTool tool) { m_tool = tool; }
    QColor color() const { return m_color; }
    void setColor(QColor color) { m_color = color; }
    // Stroke width as seen on screen when drawn; stored in image pixels.
    double lineWidthPoints() const { return m_lineWidthPoints; }
    void setLineWidthPoints(double points) { m_lineWidthPoints = points; }
    // Font size in image pixels, whatever the zoom.
    double fontImagePx() const { return m_fontImagePx; }
    void setFontImagePx(double pixels) { m_fontImagePx = pixels; }

    // Undo first commits text being typed; redo does not.
    void undo();
    void redo();
    // The selection, or the topmost annotation when nothing is selected.
    void deleteSelection();
    // The capture at full resolution with every annotation, text being typed
    // committed first; null for an empty capture.
    QImage render();

    // Where the picture is shown (the view's bounds when it has no size) and
    // how many view points one image pixel covers.
    QRectF displayRect() const;
    double displayScale() const;
    QPointF viewToImage(QPointF viewPoint) const;
    QPointF imageToView(QPointF imagePoint) const;

    // The field that text is being typed into, if any.
    QLineEdit *textField() const { return m_textField; }

    // After every change of the annotations or of the undo history.
    std::function<void()> onChange;

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    // The canvas shows no focus: gaining or losing the keyboard repaints nothing.
    void focusInEvent(QFocusEvent *) override {}
    void focusOutEvent(QFocusEvent *) override {}

private:
    Annotation::PointMap viewMap() const;
    double imageLineWidth() const;
    QRectF viewArea(const Annotation &annotation) const;
    QRectF selectionOutline() const;
    // What must be repainted when the selection changes or moves.
    void updateSelection();
    void updateInProgress();
    void beginTextEditing(QPointF viewPoint, QPointF imagePoint);
    void commitText();
    void documentChanged();
    // What the view shows the capture from: itself, or a halved copy when zoomed far out.
    const QImage &picture();
    const std::vector<QRectF> &annotationAreas();

    MarkupDocument m_document;
    MarkupTool m_tool = MarkupTool::arrow;
    QColor m_color;
    double m_lineWidthPoints = 4;
    double m_fontImagePx = 40;
    std::optional<Annotation> m_inProgress;
    bool m_moving = false;  // a select-tool press is being dragged
    QPointer<QLineEdit> m_textField;
    std::optional<QPointF> m_pendingTextPoint;
    // The capture halved m_reducedHalvings times, when the zoom asks for it.
    QImage m_reduced;
    int m_reducedHalvings = 0;
    // Each annotation's area in the view, so that a repaint draws only those it touches.
    std::optional<std::vector<QRectF>> m_areas;
};

} // namespace pixmora
