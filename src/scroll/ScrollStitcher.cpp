#include "scroll/ScrollStitcher.h"

#include "image/ImageMemory.h"

#include <QColorSpace>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>

namespace pixmora {

namespace {

constexpr qint64 kMinFrameWidth = 8;
constexpr qint64 kMinFrameHeight = 120;
constexpr qint64 kMaxColumns = 64;
constexpr int kMatchTolerancePerBand = 6;
constexpr double kStillRatio = 0.98;
constexpr double kMinMatchScore = 0.65;
constexpr double kMinGainOverStillness = 0.15;
constexpr qint64 kMinOverlapPercent = 12;
constexpr qint64 kMinOverlapRows = 48;
constexpr qint64 kCoarseRowStep = 8;
constexpr qint64 kFineRadius = 8;
constexpr qint64 kMinExactVotes = 8;

constexpr qint64 kStride = 64;
static_assert(kMaxColumns <= kStride);

// Every frame is read as 32-bit 0xAARRGGBB words; both capture formats already are.
QImage toStitchFormat(const QImage &frame)
{
    if (frame.format() == QImage::Format_RGB32 || frame.format() == QImage::Format_ARGB32_Premultiplied)
        return frame;
    return frame.convertToFormat(frame.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                                        : QImage::Format_RGB32);
}

// Gray of the stored (premultiplied, so as if over black) sRGB values: integer BT.601 luma.
inline std::uint8_t luma(QRgb pixel)
{
    return std::uint8_t((77 * qRed(pixel) + 150 * qGreen(pixel) + 29 * qBlue(pixel) + 128) >> 8);
}

void grayRow(const QRgb *__restrict pixels, qint64 width, std::uint8_t *__restrict gray)
{
    // Fixed-length blocks let the compiler vectorise without a cost model that allows epilogues.
    constexpr qint64 block = 16;
    qint64 x = 0;
    for (; x + block <= width; x += block) {
        for (qint64 i = 0; i < block; ++i)
            gray[x + i] = luma(pixels[x + i]);
    }
    for (; x < width; ++x)
        gray[x] = luma(pixels[x]);
}

// Sum of the gray levels in [begin, end), in fixed-length blocks the compiler vectorises.
unsigned graySum(const std::uint8_t *gray, qint64 begin, qint64 end)
{
    constexpr qint64 block = 16;
    unsigned sum = 0;
    qint64 x = begin;
    for (; x + block <= end; x += block) {
        for (qint64 i = 0; i < block; ++i)
            sum += gray[x + i];
    }
    for (; x < end; ++x)
        sum += gray[x];
    return sum;
}

// Random words, one per pixel of a row and one more for the partner of an odd last pixel.
std::vector<std::uint32_t> rowKey(qint64 width)
{
    std::mt19937 random(0x5eed);
    std::vector<std::uint32_t> key(std::size_t(width + 1));
    std::generate(key.begin(), key.end(), [&] { return std::uint32_t(random()); });
    return key;
}

// NH hash of a row (as in UMAC): pixels in pairs, each pixel offset by its own
// key word, the pair multiplied into 64 bits, all products summed. Two unequal
// rows collide with a chance of about 2^-32, and 32 x 32 -> 64-bit products
// are what SSE2 multiplies, so the blocks below vectorise. Blocks of 8 keep
// the sums in registers; 16 spilled them and took twice as long.
std::uint64_t rowHash(const std::uint32_t *__restrict pixels, const std::uint32_t *__restrict key, qint64 width)
{
    constexpr qint64 block = 8;
    constexpr qint64 half = block / 2;
    std::uint64_t lanes[half] = {};
    qint64 x = 0;
    for (; x + block <= width; x += block) {
        for (qint64 i = 0; i < half; ++i)
            lanes[i] += std::uint64_t(pixels[x + i] + key[x + i]) * (pixels[x + half + i] + key[x + half + i]);
    }
    std::uint64_t sum = 0;
    for (const std::uint64_t lane : lanes)
        sum += lane;
    for (; x < width; x += 2)
        sum += std::uint64_t(pixels[x] + key[x]) * ((x + 1 < width ? pixels[x + 1] : 0) + key[x + 1]);
    return sum;
}

inline bool rowsMatch(const std::uint8_t *a, const std::uint8_t *b, int tolerance)
{
    int distance = 0;
    for (qint64 i = 0; i < kStride; ++i)
        distance += std::abs(int(a[i]) - int(b[i]));
    return distance <= tolerance;
}

// Rows i of a that match rows i of b, for i < rows.
qint64 countMatchingRows(const std::uint8_t *a, const std::uint8_t *b, qint64 rows, int tolerance)
{
    qint64 matched = 0;
    for (qint64 i = 0; i < rows; ++i)
        matched += rowsMatch(a + i * kStride, b + i * kStride, tolerance);
    return matched;
}

// Strips are copied into slabs of about this size: a fresh strip of its own
// would first-touch its pages on every tick.
constexpr qint64 kSlabBytes = qint64(8) << 20;

} // namespace

std::unique_ptr<ScrollStitcher> ScrollStitcher::create(const QImage &firstFrame, qint64 maxTotalHeight)
{
    if (firstFrame.height() < kMinFrameHeight || firstFrame.width() < kMinFrameWidth)
        return nullptr;
    const QImage frame = toStitchFormat(firstFrame);
    const qint64 columns = std::min<qint64>(frame.width(), kMaxColumns);
    std::vector<std::uint32_t> key = rowKey(frame.width());
    std::optional<Digest> firstDigest = hashRows(frame, key);
    if (!firstDigest)
        return nullptr;
    sign(frame, columns, *firstDigest, nullptr, 0);
    return std::unique_ptr<ScrollStitcher>(
        new ScrollStitcher(frame, maxTotalHeight, columns, std::move(key), std::move(*firstDigest)));
}

ScrollStitcher::ScrollStitcher(const QImage &firstFrame, qint64 maxTotalHeight, qint64 columns,
                               std::vector<std::uint32_t> rowKey, Digest firstDigest)
    : m_frameWidth(firstFrame.width())
    , m_frameHeight(firstFrame.height())
    , m_maxTotalHeight(std::max<qint64>(firstFrame.height(), maxTotalHeight))
    , m_columns(columns)
    , m_rowKey(std::move(rowKey))
    , m_slices{{firstFrame, 0, int(firstFrame.height())}}
    , m_totalHeight(firstFrame.height())
    , m_last(std::move(firstDigest))
{
    prepareNextSlab(firstFrame.format());
}

// Slabs are filled to the last row, so together they hold exactly the rows up to the limit.
qint64 ScrollStitcher::rowsOfNextSlab() const
{
    const qint64 planned = m_totalHeight + (m_slab.isNull() ? 0 : m_slab.height() - m_slabUsed);
    return std::min(kSlabBytes / (m_frameWidth * qint64(sizeof(QRgb))), m_maxTotalHeight - planned);
}

void ScrollStitcher::prepareNextSlab(QImage::Format format)
{
    const qint64 rows = rowsOfNextSlab();
    if (rows <= 0)
        return;
    m_nextSlab = std::async(std::launch::async, [size = QSize(int(m_frameWidth), int(rows)), format] {
        return allocateImage(size, format);
    });
}

bool ScrollStitcher::takeNextSlab(QImage::Format format)
{
    QImage slab = m_nextSlab.valid() ? m_nextSlab.get() : QImage();
    // None was prepared, or for frames of another format, or there was no memory then.
    if (slab.format() != format)
        slab = allocateImage(QSize(int(m_frameWidth), int(rowsOfNextSlab())), format);
    if (slab.isNull())
        return false;
    m_slabBits = slab.bits();  // before the slices share it, so that it never detaches
    m_slab = std::move(slab);
    m_slabUsed = 0;
    prepareNextSlab(format);
    return true;
}

std::optional<ScrollStitcher::Digest> ScrollStitcher::hashRows(const QImage &frame,
                                                               const std::vector<std::uint32_t> &rowKey)
{
    if (frame.isNull())
        return std::nullopt;
    const std::size_t height = std::size_t(frame.height());
    Digest result{RowHashes(height), std::vector<std::pair<std::uint64_t, qint64>>(height), {}};
    for (std::size_t y = 0; y < height; ++y) {
        const auto *pixels = reinterpret_cast<const QRgb *>(frame.constScanLine(int(y)));
        result.rowHashes[y] = rowHash(pixels, rowKey.data(), frame.width());
        result.rowsByHash[y] = {result.rowHashes[y], qint64(y)};
    }
    std::sort(result.rowsByHash.begin(), result.rowsByHash.end());
    return result;
}

// Most rows of an accepted frame are rows of the reference, and an equal row
// has an equal signature: those are copied (from shift rows further down in
// the reference) and only the others are read again.
void ScrollStitcher::sign(const QImage &frame, qint64 columns, Digest &next, const Digest *reference, qint64 shift)
{
    const qint64 width = frame.width();
    const qint64 height = frame.height();

    std::vector<qint64> bandStart(columns);
    std::vector<qint64> bandEnd(columns);
    for (qint64 c = 0; c < columns; ++c) {
        bandStart[c] = c * width / columns;
        bandEnd[c] = std::max(bandStart[c] + 1, (c + 1) * width / columns);
    }

    next.signature.assign(std::size_t(height * kStride), 0);
    std::vector<std::uint8_t> gray(static_cast<std::size_t>(width));
    for (qint64 y = 0; y < height; ++y) {
        std::uint8_t *out = next.signature.data() + y * kStride;
        const qint64 source = y + shift;
        if (reference && source >= 0 && source < height
            && next.rowHashes[std::size_t(y)] == reference->rowHashes[std::size_t(source)]) {
            std::memcpy(out, reference->signature.data() + source * kStride, kStride);
            continue;
        }
        grayRow(reinterpret_cast<const QRgb *>(frame.constScanLine(int(y))), width, gray.data());
        for (qint64 c = 0; c < columns; ++c)
            out[c] = std::uint8_t(graySum(gray.data(), bandStart[c], bandEnd[c]) / unsigned(bandEnd[c] - bandStart[c]));
    }
}

// Captures of content that has not changed are pixel-identical, so rows are
// first compared exactly, by their hashes. Only distinct rows count, those that
// occur once in the new frame: blank rows, stripes and repeated lines fit many
// shifts. A distinct row that also occurs once in the reference votes for the
// shift between its two places. The shift with the most votes (ties to the
// smaller) is convincing when it has kMinExactVotes or more and kMinMatchScore
// or more of the distinct rows in its overlap equal the reference. Nothing
// when it is not; the shift found may be 0, negative (scrolled back) or beyond
// the search range. Rows that moved by another shift above those that fit it
// are a fixed header; below them, the frame was caught while the content
// repainted (part moved, part not), and the rows it would add may be wrong.
std::optional<ScrollStitcher::ExactShift> ScrollStitcher::exactShift(const Digest &next) const
{
    const qint64 height = m_frameHeight;
    using Rows = std::vector<std::pair<std::uint64_t, qint64>>;
    const auto runEnd = [](Rows::const_iterator row, Rows::const_iterator end, std::uint64_t hash) {
        return std::find_if(row, end, [&](const auto &other) { return other.first != hash; });
    };
    const Rows &reference = m_last.rowsByHash;
    const Rows &incoming = next.rowsByHash;

    std::vector<bool> distinct(std::size_t(height), false);
    for (auto n = incoming.begin(); n != incoming.end();) {
        const auto end = runEnd(n, incoming.end(), n->first);
        distinct[std::size_t(n->second)] = end - n == 1;
        n = end;
    }
    // votes[height - 1 + s]: rows of the new frame found s rows further down in the reference.
    std::vector<qint64> votes(std::size_t(2 * height - 1), 0);
    std::vector<std::optional<qint64>> voteOf(static_cast<std::size_t>(height));
    for (auto r = reference.begin(), n = incoming.begin(); r != reference.end() && n != incoming.end();) {
        const std::uint64_t hash = std::min(r->first, n->first);
        const auto rEnd = runEnd(r, reference.end(), hash);
        const auto nEnd = runEnd(n, incoming.end(), hash);
        if (rEnd - r == 1 && nEnd - n == 1) {
            ++votes[std::size_t(height - 1 + r->second - n->second)];
            voteOf[std::size_t(n->second)] = r->second - n->second;
        }
        r = rEnd;
        n = nEnd;
    }

    const auto leader = std::max_element(votes.begin(), votes.end());
    if (*leader < kMinExactVotes)
        return std::nullopt;
    const qint64 shift = qint64(leader - votes.begin()) - (height - 1);
    qint64 distinctRows = 0;
    qint64 equal = 0;
    qint64 movedOtherwise = 0; // below the first row that fits the shift
    bool fitting = false;
    for (qint64 y = std::max<qint64>(0, -shift), end = std::min(height, height - shift); y < end; ++y) {
        if (distinct[std::size_t(y)]) {
            ++distinctRows;
            const bool same = next.rowHashes[std::size_t(y)] == m_last.rowHashes[std::size_t(y + shift)];
            equal += same;
            fitting = fitting || same;
            movedOtherwise += fitting && voteOf[std::size_t(y)] && *voteOf[std::size_t(y)] != shift;
        }
    }
    if (double(equal) < kMinMatchScore * double(distinctRows))
        return std::nullopt;
    if (movedOtherwise >= kMinExactVotes)
        return ExactShift{shift, true};
    return ExactShift{shift, false};
}

int ScrollStitcher::matchTolerance() const
{
    return kMatchTolerancePerBand * int(m_columns);
}

double ScrollStitcher::stillnessRatio(const Signature &next) const
{
    const qint64 matched = countMatchingRows(next.data(), m_last.signature.data(), m_frameHeight, matchTolerance());
    return double(matched) / double(m_frameHeight);
}

qint64 ScrollStitcher::coarseShift(const Signature &next, qint64 maxShift) const
{
    const qint64 height = m_frameHeight;
    const int tolerance = matchTolerance();

    // Row by row rather than shift by shift: each sampled new row stays in
    // registers while the reference rows stream past in memory order.
    std::vector<qint64> matched(std::size_t(maxShift + 1), 0);
    for (qint64 y = 0; y < height - 1; y += kCoarseRowStep) {
        const std::uint8_t *newRow = next.data() + y * kStride;
        const std::uint8_t *reference = m_last.signature.data() + (y + 1) * kStride;
        const qint64 lastShift = std::min(maxShift, height - 1 - y);
        for (qint64 shift = 1; shift <= lastShift; ++shift, reference += kStride)
            matched[shift] += rowsMatch(newRow, reference, tolerance);
    }

    double bestScore = -1;
    qint64 bestShift = 1;
    for (qint64 shift = 1; shift <= maxShift; ++shift) {
        const qint64 compared = (height - shift + kCoarseRowStep - 1) / kCoarseRowStep;
        const double score = double(matched[shift]) / double(compared);
        if (score > bestScore) {
            bestScore = score;
            bestShift = shift;
        }
    }
    return bestShift;
}

ScrollStitcher::Alignment ScrollStitcher::fineShift(const Signature &next, qint64 coarse, qint64 maxShift) const
{
    const qint64 height = m_frameHeight;
    Alignment best{coarse, 0};
    const qint64 last = std::min(coarse + kFineRadius, maxShift);
    for (qint64 shift = std::max(coarse, kFineRadius + 1) - kFineRadius; shift <= last; ++shift) {
        const qint64 overlap = height - shift;
        const qint64 matched = countMatchingRows(next.data(), m_last.signature.data() + shift * kStride, overlap,
                                                 matchTolerance());
        const double score = double(matched) / double(overlap);
        if (score > best.score)
            best = {shift, score};
    }
    return best;
}

AppendResult ScrollStitcher::append(const QImage &input)
{
    using Kind = AppendResult::Kind;
    if (m_totalHeight >= m_maxTotalHeight)
        return {Kind::limitReached};
    if (input.width() != m_frameWidth || input.height() != m_frameHeight)
        return {Kind::noMatch};
    const QImage frame = toStitchFormat(input);
    std::optional<Digest> next = hashRows(frame, m_rowKey);
    if (!next)
        return {Kind::noMatch};

    const qint64 height = m_frameHeight;
    const qint64 minOverlap = std::max(height * kMinOverlapPercent / 100, kMinOverlapRows);
    const qint64 maxShift = height - minOverlap;
    if (const std::optional<ExactShift> exact = exactShift(*next)) {
        // Caught mid-repaint: the next frame is aligned with the last good one.
        if (exact->shift == 0 || exact->torn)
            return {Kind::noMovement};
        if (exact->shift < 0 || exact->shift > maxShift)
            return {Kind::noMatch};
        sign(frame, m_columns, *next, &m_last, exact->shift);
        return accept(frame, std::move(*next), exact->shift);
    }

    // Content that re-renders slightly between frames: the tolerant search.
    sign(frame, m_columns, *next, &m_last, 0);
    const double stillness = stillnessRatio(next->signature);
    if (stillness >= kStillRatio)
        return {Kind::noMovement};
    const Alignment best = fineShift(next->signature, coarseShift(next->signature, maxShift), maxShift);
    if (best.score < kMinMatchScore || !(stillness + kMinGainOverStillness < best.score))
        return {stillness >= kMinMatchScore ? Kind::noMovement : Kind::noMatch};
    return accept(frame, std::move(*next), best.shift);
}

AppendResult ScrollStitcher::accept(const QImage &frame, Digest next, qint64 shift)
{
    using Kind = AppendResult::Kind;
    const qint64 rows = std::min(m_maxTotalHeight - m_totalHeight, shift);
    if (!m_slab.isNull() && m_slab.format() != frame.format())
        m_slab = {};
    // A deep copy of the new rows, across two slabs where one fills up:
    // holding a view would keep the whole frame alive.
    const std::size_t rowBytes = std::size_t(m_frameWidth) * sizeof(QRgb);
    const auto slicesBefore = std::ptrdiff_t(m_slices.size());
    const qint64 heightBefore = m_totalHeight;
    for (qint64 copied = 0; copied < rows;) {
        if ((m_slab.isNull() || m_slabUsed == m_slab.height()) && !takeNextSlab(frame.format())) {
            // No memory: the page stays as it was, and the next frame tries again.
            m_slices.erase(m_slices.begin() + slicesBefore, m_slices.end());
            m_totalHeight = heightBefore;
            m_slab = {};
            return {Kind::noMatch};
        }
        const qint64 part = std::min(rows - copied, m_slab.height() - m_slabUsed);
        for (qint64 y = 0; y < part; ++y)
            std::memcpy(m_slabBits + (m_slabUsed + y) * m_slab.bytesPerLine(),
                        frame.constScanLine(int(m_frameHeight - shift + copied + y)), rowBytes);
        m_slices.push_back({m_slab, int(m_slabUsed), int(part)});
        m_slabUsed += part;
        m_totalHeight += part;
        copied += part;
    }
    m_last = std::move(next);
    if (m_totalHeight >= m_maxTotalHeight)
        return {Kind::limitReached};
    return {Kind::appended, rows};
}

QImage ScrollStitcher::compose() const
{
    if (m_slices.empty())
        return {};
    if (m_slices.size() == 1)
        return m_slices.front().pixels;

    // Opaque captures stay opaque; an opaque 0xffRRGGBB word is also a valid premultiplied pixel.
    const bool anyAlpha = std::any_of(m_slices.begin(), m_slices.end(), [](const Slice &slice) {
        return slice.pixels.format() == QImage::Format_ARGB32_Premultiplied;
    });
    QImage canvas = allocateImage(QSize(int(m_frameWidth), int(m_totalHeight)),
                                  anyAlpha ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
    if (canvas.isNull())
        return {};

    const std::size_t rowBytes = std::size_t(m_frameWidth) * sizeof(QRgb);
    int top = 0;
    for (const Slice &slice : m_slices) {
        for (int y = 0; y < slice.rows; ++y)
            std::memcpy(canvas.scanLine(top + y), slice.pixels.constScanLine(slice.top + y), rowBytes);
        top += slice.rows;
    }
    const QImage &first = m_slices.front().pixels;
    canvas.setColorSpace(first.colorSpace().isValid() ? first.colorSpace() : QColorSpace(QColorSpace::SRgb));
    canvas.setDevicePixelRatio(first.devicePixelRatio());
    return canvas;
}

} // namespace pixmora
