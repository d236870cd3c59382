#pragma once

#include "markup/Annotation.h"

#include <QImage>

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace pixmora {

// What the markup editor edits: a capture that is never modified, the
// annotations over it (drawn in order, the last on top), their undo and redo
// history, and the selection. The canvas turns gestures into calls here; a
// shape still being dragged out and text still being typed stay with the
// canvas until they are finished.
class MarkupDocument {
public:
    explicit MarkupDocument(QImage baseImage);
    MarkupDocument(const MarkupDocument &) = delete;
    MarkupDocument &operator=(const MarkupDocument &) = delete;

    const QImage &baseImage() const { return m_baseImage; }
    const std::vector<Annotation> &annotations() const { return m_annotations; }
    // An index into annotations().
    std::optional<std::size_t> selection() const { return m_selection; }
    void clearSelection() { m_selection.reset(); }

    // A finished annotation becomes the topmost one and the selection, in one
    // undoable step. Dropped instead: a shape or stroke of fewer than three
    // points whose bounding box is at most 3 x 3 pixels (a click with a thin
    // pen), and text that is blank; text is kept trimmed. Says whether it was kept.
    bool add(Annotation annotation);

    // The topmost annotation whose bounding box holds the point.
    std::optional<std::size_t> annotationAt(QPointF imagePoint) const;

    // The select tool's gesture: the press selects what it hits (or nothing),
    // each drag moves the selection by the pointer's travel since the last,
    // and the release records one undo step if anything moved. Any other
    // change in between ends the gesture unrecorded.
    void beginMove(QPointF imagePoint);
    void continueMove(QPointF imagePoint);
    void endMove();

    // Removes the selection, or the topmost annotation when nothing is selected.
    void deleteSelection();
    void undo();
    void redo();
    bool canUndo() const { return !m_undoStack.empty(); }
    bool canRedo() const { return !m_redoStack.empty(); }

    // The capture at full resolution with every annotation drawn over it at
    // its stored size: premultiplied ARGB32 in the capture's colour space, or
    // sRGB when it has none. Null for an empty capture.
    QImage render() const;

    // Called after every change of the annotations or of the history; a move
    // reports once, when its release records it.
    std::function<void()> onChange;

private:
    using Snapshot = std::vector<Annotation>;
    struct Move {
        QPointF lastPoint;
        std::optional<Snapshot> before;  // only when the press hit an annotation
        bool moved = false;
    };

    void record(Snapshot before);
    void changed();

    const QImage m_baseImage;
    std::vector<Annotation> m_annotations;
    // Copies of whole lists: later moves never reach into the history.
    std::vector<Snapshot> m_undoStack;
    std::vector<Snapshot> m_redoStack;
    std::optional<std::size_t> m_selection;
    std::optional<Move> m_move;
};

} // namespace pixmora
