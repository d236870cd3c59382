#include "markup/MarkupCanvasView.h"

#include "image/ImageMemory.h"
#include "markup/MarkupColors.h"

#include <QColorSpace>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <utility>

namespace pixmora {

namespace {

using Kind = Annotation::Kind;

// The selection outline: 2 points outside the bounding box, a 1-point dashed line.
constexpr double kOutlineInset = 2;
// The text field's frame around the text: above the pressed point, and beside it.
constexpr double kFieldTopMargin = 3;
constexpr double kFieldLeftMargin = 2;
constexpr int kFieldWidth = 220;
constexpr double kMinimumFieldFont = 8;

// The four channels of a pixel, 16 bits apart: sums of four pixels cannot carry into each other.
quint64 spread(quint32 pixel)
{
    return (quint64(pixel & 0xff00ff00u) << 24 | (pixel & 0x00ff00ffu)) & 0x00ff00ff00ff00ffull;
}

// Pixels wholly inside the rectangle.
QRect innerPixels(const QRectF &rect)
{
    const QPoint topLeft(int(std::ceil(rect.left())), int(std::ceil(rect.top())));
    const QPoint bottomRight(int(std::floor(rect.right())) - 1, int(std::floor(rect.bottom())) - 1);
    return QRect(topLeft, bottomRight);
}

// Half the size, each pixel the mean of the four it replaces; the last row
// or column of an odd size is left out. Null when there is no memory.
QImage halved(const QImage &image)
{
    const QImage::Format format = image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32;
    const QImage source = image.format() == format ? image : image.convertToFormat(format);
    QImage result = allocateImage(QSize(std::max(1, source.width() / 2), std::max(1, source.height() / 2)), format);
    if (result.isNull() || source.isNull())
        return {};
    const bool oneWide = source.width() < 2, oneHigh = source.height() < 2;
    for (int y = 0; y < result.height(); ++y) {
        const auto *upper = reinterpret_cast<const quint32 *>(source.constScanLine(oneHigh ? 0 : 2 * y));
        const auto *lower = reinterpret_cast<const quint32 *>(source.constScanLine(oneHigh ? 0 : 2 * y + 1));
        auto *out = reinterpret_cast<quint32 *>(result.scanLine(y));
        for (int x = 0; x < result.width(); ++x) {
            const int left = oneWide ? 0 : 2 * x, right = oneWide ? 0 : 2 * x + 1;
            const quint64 sum = 0x0002000200020002ull + spread(upper[left]) + spread(upper[right])
                                + spread(lower[left]) + spread(lower[right]);
            const quint64 mean = sum >> 2 & 0x00ff00ff00ff00ffull;
            out[x] = quint32(mean | mean >> 24);
        }
    }
    result.setColorSpace(source.colorSpace());
    return result;
}

} // namespace

MarkupCanvasView::MarkupCanvasView(QImage image, QWidget *parent)
    : QWidget(parent), m_document(std::move(image)), m_color(markupSwatchColors().front())
{
    setFocusPolicy(Qt::StrongFocus);
    // Every pixel is painted here; Qt need not clear what is repainted.
    setAttribute(Qt::WA_OpaquePaintEvent);
    m_document.onChange = [this] { documentChanged(); };
}

MarkupCanvasView::~MarkupCanvasView() = default;

// --- Geometry ---

QRectF MarkupCanvasView::displayRect() const
{
    const QRectF bounds = rect();
    const QSizeF image = m_document.baseImage().size();
    if (!(image.width() > 0 && image.height() > 0))
        return bounds;
    const double factor = std::min(bounds.width() / image.width(), bounds.height() / image.height());
    QRectF fitted(QPointF(), image * factor);
    fitted.moveCenter(bounds.center());
    return fitted;
}

double MarkupCanvasView::displayScale() const
{
    const int width = m_document.baseImage().width();
    return width > 0 ? displayRect().width() / width : 1;
}

QPointF MarkupCanvasView::imageToView(QPointF imagePoint) const
{
    return displayRect().topLeft() + displayScale() * imagePoint;
}

QPointF MarkupCanvasView::viewToImage(QPointF viewPoint) const
{
    const double scale = displayScale();
    if (!(scale > 0))
        return {};
    return (viewPoint - displayRect().topLeft()) / scale;
}

Annotation::PointMap MarkupCanvasView::viewMap() const
{
    const QPointF origin = displayRect().topLeft();
    const double scale = displayScale();
    return [origin, scale](QPointF point) { return origin + scale * point; };
}

// As thick on screen as chosen, at the zoom of the moment.
double MarkupCanvasView::imageLineWidth() const
{
    return m_lineWidthPoints * m_document.baseImage().width() / std::max(displayRect().width(), 1.0);
}

QRectF MarkupCanvasView::viewArea(const Annotation &annotation) const
{
    return annotation.drawnArea(viewMap(), displayScale());
}

QRectF MarkupCanvasView::selectionOutline() const
{
    const std::optional<std::size_t> selected = m_document.selection();
    if (!selected)
        return {};
    const QRectF box = m_document.annotations()[*selected].boundingBox();
    return QRectF(imageToView(box.topLeft()), imageToView(box.bottomRight()))
        .normalized()
        .adjusted(-kOutlineInset, -kOutlineInset, kOutlineInset, kOutlineInset);
}

// --- Painting ---

// The painter samples the capture bilinearly, which stays sharp down to half
// size; below that it would alias, so it samples a copy halved as often as
// needed instead, made once per zoom.
const QImage &MarkupCanvasView::picture()
{
    const QImage &base = m_document.baseImage();
    int halvings = 0;
    for (double scale = displayScale() * devicePixelRatioF(); scale > 0 && scale < 0.5; scale *= 2)
        ++halvings;
    if (halvings == 0) {
        m_reduced = {};
        return base;
    }
    if (m_reducedHalvings != halvings || m_reduced.isNull()) {
        m_reduced = {};
        QImage reduced = halved(base);
        for (int step = 1; step < halvings && !reduced.isNull(); ++step)
            reduced = halved(reduced);
        m_reduced = reduced.isNull() ? base : reduced;
        m_reducedHalvings = halvings;
    }
    return m_reduced;
}

const std::vector<QRectF> &MarkupCanvasView::annotationAreas()
{
    if (!m_areas) {
        const Annotation::PointMap map = viewMap();
        const double scale = displayScale();
        std::vector<QRectF> areas;
        areas.reserve(m_document.annotations().size());
        for (const Annotation &annotation : m_document.annotations())
            areas.push_back(annotation.drawnArea(map, scale));
        m_areas = std::move(areas);
    }
    return *m_areas;
}

void MarkupCanvasView::paintEvent(QPaintEvent *event)
{
    const QRegion dirty = event->region();
    const QImage &shown = picture();
    const double ratio = devicePixelRatioF();
    // On whole device pixels, so that a picture shown at its own size is copied, not resampled.
    const QRectF display = displayRect();
    const QRectF target(QPointF(std::round(display.x() * ratio), std::round(display.y() * ratio)) / ratio,
                        display.size());

    QPainter painter(this);
    const QRegion margins = shown.isNull() || shown.hasAlphaChannel() ? dirty : dirty.subtracted(innerPixels(target));
    for (const QRect &part : margins)
        painter.fillRect(part, palette().window());
    if (!shown.isNull() && !target.isEmpty()) {
        // One mapping for every part, so that parts painted apart join as one paint would.
        QTransform toView = QTransform::fromTranslate(target.x(), target.y());
        toView.scale(target.width() / shown.width(), target.height() / shown.height());
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        for (const QRect &part : dirty) {
            if (!QRectF(part).intersects(target))
                continue;
            painter.resetTransform();
            painter.setClipRect(part);
            painter.setTransform(toView);
            painter.drawImage(QPointF(), shown);
        }
        painter.resetTransform();
        painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
    }

    // The strokes work out their pixels themselves and see only this clip, not the paint event's.
    painter.setClipRegion(dirty);
    const QRectF dirtyBounds = dirty.boundingRect();
    const Annotation::PointMap map = viewMap();
    const double scale = displayScale();
    const std::vector<QRectF> &areas = annotationAreas();
    const std::vector<Annotation> &annotations = m_document.annotations();
    for (std::size_t index = 0; index < annotations.size(); ++index) {
        if (areas[index].intersects(dirtyBounds))
            annotations[index].draw(painter, map, scale);
    }
    if (m_inProgress)
        m_inProgress->draw(painter, map, scale);

    const QRectF outline = selectionOutline();
    if (!outline.isNull() && outline.adjusted(-1, -1, 1, 1).intersects(dirtyBounds)) {
        QPen pen(palette().color(QPalette::Highlight), 1);
        pen.setDashPattern({4, 3});
        painter.setPen(pen);
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(outline);
    }
}

void MarkupCanvasView::updateSelection()
{
    const std::optional<std::size_t> selected = m_document.selection();
    if (!selected)
        return;
    update(selectionOutline().adjusted(-1, -1, 1, 1).toAlignedRect());
    update(viewArea(m_document.annotations()[*selected]).toAlignedRect());
}

void MarkupCanvasView::updateInProgress()
{
    if (m_inProgress)
        update(viewArea(*m_inProgress).toAlignedRect());
}

void MarkupCanvasView::resizeEvent(QResizeEvent *event)
{
    m_areas.reset();
    QWidget::resizeEvent(event);
}

void MarkupCanvasView::documentChanged()
{
    m_areas.reset();
    update();
    if (onChange)
        onChange();
}

// --- Gestures ---

void MarkupCanvasView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    commitText();
    const QPointF point = viewToImage(event->position());
    if (m_tool == MarkupTool::select) {
        updateSelection();
        m_document.beginMove(point);
        m_moving = true;
        updateSelection();
        return;
    }
    if (m_tool == MarkupTool::text) {
        beginTextEditing(event->position(), point);
        return;
    }
    updateSelection();
    m_document.clearSelection();
    const Kind kind = *annotationKind(m_tool);
    const bool stroke = kind == Kind::freehand || kind == Kind::highlight;
    m_inProgress = Annotation(kind, stroke ? QList<QPointF>{point} : QList<QPointF>{point, point}, m_color,
                              imageLineWidth());
    updateInProgress();
}

void MarkupCanvasView::mouseMoveEvent(QMouseEvent *event)
{
    const QPointF point = viewToImage(event->position());
    if (m_moving) {
        if (m_document.selection()) {
            updateSelection();
            m_document.continueMove(point);
            m_areas.reset();
            updateSelection();
        }
        return;
    }
    if (!m_inProgress)
        return;
    const Kind kind = m_inProgress->kind();
    if (kind == Kind::freehand || kind == Kind::highlight) {
        // A growing stroke changes only around its newest segment.
        m_inProgress->appendPoint(point);
        const QList<QPointF> &points = m_inProgress->points();
        const Annotation newest(kind, points.mid(points.size() - 2), m_inProgress->color(), m_inProgress->lineWidth());
        update(viewArea(newest).toAlignedRect());
    } else if (m_inProgress->points().size() >= 2) {
        updateInProgress();
        m_inProgress->setPoint(1, point);
        updateInProgress();
    }
}

void MarkupCanvasView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    if (std::exchange(m_moving, false)) {
        m_document.endMove();
        return;
    }
    if (m_inProgress) {
        updateInProgress();
        m_document.add(*std::exchange(m_inProgress, std::nullopt));
    }
}

void MarkupCanvasView::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Z && event->modifiers().testFlag(Qt::ControlModifier)) {
        if (event->modifiers().testFlag(Qt::ShiftModifier))
            redo();
        else
            undo();
        return;
    }
    if (event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace) {
        deleteSelection();
        return;
    }
    QWidget::keyPressEvent(event);
}

// --- Text ---

void MarkupCanvasView::beginTextEditing(QPointF viewPoint, QPointF imagePoint)
{
    const double fontSize = m_fontImagePx * displayScale();
    const double lineHeight = 1.2 * fontSize;
    auto *field = new QLineEdit(this);
    QFont font = field->font();
    font.setPixelSize(std::max(1, qRound(std::max(fontSize, kMinimumFieldFont))));
    font.setWeight(QFont::DemiBold);
    field->setFont(font);
    QPalette colours = field->palette();
    colours.setColor(QPalette::Text, m_color);
    QColor background = colours.color(QPalette::Base);
    background.setAlphaF(0.9f);
    colours.setColor(QPalette::Base, background);
    field->setPalette(colours);
    field->setPlaceholderText(QString::fromUtf8("Type…"));
    field->setGeometry(QRectF(viewPoint.x() - kFieldLeftMargin, viewPoint.y() - kFieldTopMargin, kFieldWidth,
                              lineHeight + 2 * kFieldTopMargin)
                           .toRect());
    // Return, Tab and a click elsewhere all end the editing.
    connect(field, &QLineEdit::editingFinished, this, [this] { commitText(); });
    field->show();
    field->setFocus(Qt::OtherFocusReason);
    m_textField = field;
    m_pendingTextPoint = imagePoint;
}

// Colour and sizes are those of the moment the text is committed.
void MarkupCanvasView::commitText()
{
    if (!m_textField || !m_pendingTextPoint)
        return;
    QLineEdit *field = std::exchange(m_textField, nullptr);
    const QPointF anchor = *std::exchange(m_pendingTextPoint, std::nullopt);
    const QString text = field->text();
    // Its loss of focus on the way out must not finish it a second time.
    field->disconnect(this);
    const bool typing = field->hasFocus();
    field->hide();
    field->deleteLater();
    if (typing)
        setFocus(Qt::OtherFocusReason);
    m_document.add(Annotation(Kind::text, {anchor}, m_color, imageLineWidth(), text, m_fontImagePx));
}

// --- Commands ---

void MarkupCanvasView::undo()
{
    commitText();
    m_document.undo();
}

void MarkupCanvasView::redo()
{
    m_document.redo();
}

void MarkupCanvasView::deleteSelection()
{
    m_document.deleteSelection();
}

QImage MarkupCanvasView::render()
{
    commitText();
    return m_document.render();
}

} // namespace pixmora
