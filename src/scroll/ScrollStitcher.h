#pragma once

#include <QImage>
#include <QtGlobal>

#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace pixmora {

struct AppendResult {
    // noMovement also for a frame caught while its content repainted.
    enum class Kind { appended, noMovement, noMatch, limitReached };
    Kind kind;
    qint64 rows = 0;          // rows added; only for appended
};

// Stacks the frames of a scrolling capture into one tall image: every frame is
// aligned with the last accepted one, first by rows that are exactly equal,
// failing that by a tolerant per-row gray signature, and only the rows that
// have newly come into view at the bottom are kept.
class ScrollStitcher {
public:
    // Nothing when the frame is under 120 x 8 pixels or its signature cannot be made.
    static std::unique_ptr<ScrollStitcher> create(const QImage &firstFrame, qint64 maxTotalHeight);
    AppendResult append(const QImage &frame);
    QImage compose() const;   // a null QImage when nothing can be built
    qint64 totalHeight() const { return m_totalHeight; }
    qint64 frameWidth() const { return m_frameWidth; }
    qint64 frameHeight() const { return m_frameHeight; }
    qint64 maxTotalHeight() const { return m_maxTotalHeight; }

private:
    // Band means of every row, each row padded with zeros to 64 bytes so that
    // comparing two rows is one fixed-length loop the compiler can vectorise.
    using Signature = std::vector<std::uint8_t>;
    // One hash of every full-resolution row: equal rows hash alike, and two
    // unequal rows practically never do.
    using RowHashes = std::vector<std::uint64_t>;
    struct Digest {
        RowHashes rowHashes;
        std::vector<std::pair<std::uint64_t, qint64>> rowsByHash; // (hash, row), sorted
        Signature signature; // made only for a frame that is accepted or searched tolerantly
    };
    struct ExactShift {
        qint64 shift;
        bool torn; // its lower rows moved by another shift
    };
    struct Alignment {
        qint64 shift;
        double score;
    };

    ScrollStitcher(const QImage &firstFrame, qint64 maxTotalHeight, qint64 columns, std::vector<std::uint32_t> rowKey,
                   Digest firstDigest);

    static std::optional<Digest> hashRows(const QImage &frame, const std::vector<std::uint32_t> &rowKey);
    static void sign(const QImage &frame, qint64 columns, Digest &next, const Digest *reference, qint64 shift);
    std::optional<ExactShift> exactShift(const Digest &next) const;
    int matchTolerance() const;
    double stillnessRatio(const Signature &next) const;
    qint64 coarseShift(const Signature &next, qint64 maxShift) const;
    Alignment fineShift(const Signature &next, qint64 coarse, qint64 maxShift) const;
    AppendResult accept(const QImage &frame, Digest next, qint64 shift);
    qint64 rowsOfNextSlab() const;
    void prepareNextSlab(QImage::Format format);
    bool takeNextSlab(QImage::Format format);

    const qint64 m_frameWidth;
    const qint64 m_frameHeight;
    const qint64 m_maxTotalHeight;
    const qint64 m_columns;
    const std::vector<std::uint32_t> m_rowKey; // one random word per pixel of a row, for the row hash

    // Rows of the page in order: the first frame, then strips copied into
    // shared slabs, so no frame outlives its append().
    struct Slice {
        QImage pixels;
        int top;
        int rows;
    };
    std::vector<Slice> m_slices;
    QImage m_slab;  // the one strips are copied into now
    uchar *m_slabBits = nullptr;
    qint64 m_slabUsed = 0;
    // Fresh memory costs as much as a whole tick here, so the next slab is
    // made on a worker thread while this one fills.
    std::future<QImage> m_nextSlab;
    qint64 m_totalHeight;
    Digest m_last; // of the frame the last slice was cut from
};

} // namespace pixmora
