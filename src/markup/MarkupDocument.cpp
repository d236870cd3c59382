#include "markup/MarkupDocument.h"

#include "image/ImageMemory.h"

#include <QColorSpace>
#include <QPainter>

#include <utility>

namespace pixmora {

namespace {

// At or below this size both ways, a shape of fewer than three points is a stray click.
constexpr double kMinShapeExtent = 3;

// A box owns its left and top edges but not its right and bottom ones, so
// that boxes which only touch never both hold a point; an empty box holds nothing.
bool holds(const QRectF &box, QPointF point)
{
    return point.x() >= box.left() && point.x() < box.right() && point.y() >= box.top() && point.y() < box.bottom();
}

} // namespace

MarkupDocument::MarkupDocument(QImage baseImage)
    : m_baseImage(std::move(baseImage))
{
}

bool MarkupDocument::add(Annotation annotation)
{
    if (annotation.kind() == Annotation::Kind::text) {
        const QString trimmed = annotation.text().trimmed();
        if (trimmed.isEmpty())
            return false;
        annotation = Annotation(annotation.kind(), annotation.points(), annotation.color(), annotation.lineWidth(),
                                trimmed, annotation.fontSize());
    } else {
        const QRectF box = annotation.boundingBox();
        if (box.width() <= kMinShapeExtent && box.height() <= kMinShapeExtent && annotation.points().size() < 3)
            return false;
    }
    record(m_annotations);
    m_annotations.push_back(std::move(annotation));
    m_selection = m_annotations.size() - 1;
    changed();
    return true;
}

std::optional<std::size_t> MarkupDocument::annotationAt(QPointF imagePoint) const
{
    for (std::size_t index = m_annotations.size(); index-- > 0;) {
        if (holds(m_annotations[index].boundingBox(), imagePoint))
            return index;
    }
    return std::nullopt;
}

void MarkupDocument::beginMove(QPointF imagePoint)
{
    m_selection = annotationAt(imagePoint);
    m_move = Move{imagePoint, m_selection ? std::optional(m_annotations) : std::nullopt};
}

void MarkupDocument::continueMove(QPointF imagePoint)
{
    if (!m_move || !m_selection)
        return;
    const QPointF offset = imagePoint - m_move->lastPoint;
    m_move->lastPoint = imagePoint;
    if (offset.isNull())
        return;
    m_annotations[*m_selection].translate(offset);
    m_move->moved = true;
}

void MarkupDocument::endMove()
{
    std::optional<Move> move = std::exchange(m_move, std::nullopt);
    if (!move || !move->moved || !move->before)
        return;
    record(std::move(*move->before));
    changed();
}

void MarkupDocument::deleteSelection()
{
    if (m_annotations.empty())
        return;
    const std::size_t target = m_selection.value_or(m_annotations.size() - 1);
    record(m_annotations);
    m_annotations.erase(m_annotations.begin() + std::ptrdiff_t(target));
    m_selection.reset();
    changed();
}

void MarkupDocument::undo()
{
    if (m_undoStack.empty())
        return;
    m_move.reset();
    m_redoStack.push_back(std::exchange(m_annotations, std::move(m_undoStack.back())));
    m_undoStack.pop_back();
    m_selection.reset();
    changed();
}

void MarkupDocument::redo()
{
    if (m_redoStack.empty())
        return;
    m_move.reset();
    m_undoStack.push_back(std::exchange(m_annotations, std::move(m_redoStack.back())));
    m_redoStack.pop_back();
    m_selection.reset();
    changed();
}

void MarkupDocument::record(Snapshot before)
{
    m_move.reset();
    m_undoStack.push_back(std::move(before));
    m_redoStack.clear();
}

void MarkupDocument::changed()
{
    if (onChange)
        onChange();
}

QImage MarkupDocument::render() const
{
    if (m_baseImage.isNull())
        return {};
    // RGB32 for an opaque capture came out no faster, and the PNG encoder sees opacity either way.
    QImage result = allocateImage(m_baseImage.size(), QImage::Format_ARGB32_Premultiplied);
    if (result.isNull())
        return {};
    const QColorSpace colorSpace = m_baseImage.colorSpace();
    result.setColorSpace(colorSpace.isValid() ? colorSpace : QColorSpace(QColorSpace::SRgb));

    QPainter painter(&result);
    // Pixel for pixel, whatever the capture's device pixel ratio, into memory that holds nothing yet.
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(QRectF(result.rect()), m_baseImage, QRectF(m_baseImage.rect()));
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    const Annotation::PointMap identity = [](QPointF point) { return point; };
    for (const Annotation &annotation : m_annotations)
        annotation.draw(painter, identity, 1);
    return result;
}

} // namespace pixmora
