#include "scroll/ScrollStitcher.h"

#include "image/ImageMemory.h"

#include <QColorSpace>

#include <algorithm>
#include <cstdlib>
#include <cstring>

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

// A deep copy of rows [top, top + rows) of the frame, in fresh memory from
// the platform's image allocator; a null image when there is none.
QImage copyOfRows(const QImage &frame, int top, int rows)
{
    QImage strip = allocateImage(QSize(frame.width(), rows), frame.format());
    if (strip.isNull())
        return strip;
    const std::size_t rowBytes = std::size_t(frame.width()) * sizeof(QRgb);
    for (int y = 0; y < rows; ++y)
        std::memcpy(strip.scanLine(y), frame.constScanLine(top + y), rowBytes);
    return strip;
}

} // namespace

std::unique_ptr<ScrollStitcher> ScrollStitcher::create(const QImage &firstFrame, qint64 maxTotalHeight)
{
    if (firstFrame.height() < kMinFrameHeight || firstFrame.width() < kMinFrameWidth)
        return nullptr;
    const QImage frame = toStitchFormat(firstFrame);
    const qint64 columns = std::min<qint64>(frame.width(), kMaxColumns);
    std::optional<Signature> firstSignature = signature(frame, columns);
    if (!firstSignature)
        return nullptr;
    return std::unique_ptr<ScrollStitcher>(
        new ScrollStitcher(frame, maxTotalHeight, columns, std::move(*firstSignature)));
}

ScrollStitcher::ScrollStitcher(const QImage &firstFrame, qint64 maxTotalHeight, qint64 columns,
                               Signature firstSignature)
    : m_frameWidth(firstFrame.width())
    , m_frameHeight(firstFrame.height())
    , m_maxTotalHeight(std::max<qint64>(firstFrame.height(), maxTotalHeight))
    , m_columns(columns)
    , m_slices{firstFrame}
    , m_totalHeight(firstFrame.height())
    , m_lastSignature(std::move(firstSignature))
{
}

std::optional<ScrollStitcher::Signature> ScrollStitcher::signature(const QImage &frame, qint64 columns)
{
    if (frame.isNull())
        return std::nullopt;
    const qint64 width = frame.width();
    const qint64 height = frame.height();

    std::vector<qint64> bandStart(columns);
    std::vector<qint64> bandEnd(columns);
    for (qint64 c = 0; c < columns; ++c) {
        bandStart[c] = c * width / columns;
        bandEnd[c] = std::max(bandStart[c] + 1, (c + 1) * width / columns);
    }

    Signature result(std::size_t(height * kStride), 0);
    std::vector<std::uint8_t> gray(static_cast<std::size_t>(width));
    for (qint64 y = 0; y < height; ++y) {
        grayRow(reinterpret_cast<const QRgb *>(frame.constScanLine(int(y))), width, gray.data());
        std::uint8_t *out = result.data() + y * kStride;
        for (qint64 c = 0; c < columns; ++c)
            out[c] = std::uint8_t(graySum(gray.data(), bandStart[c], bandEnd[c]) / unsigned(bandEnd[c] - bandStart[c]));
    }
    return result;
}

int ScrollStitcher::matchTolerance() const
{
    return kMatchTolerancePerBand * int(m_columns);
}

double ScrollStitcher::stillnessRatio(const Signature &next) const
{
    const qint64 matched = countMatchingRows(next.data(), m_lastSignature.data(), m_frameHeight, matchTolerance());
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
        const std::uint8_t *reference = m_lastSignature.data() + (y + 1) * kStride;
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
        const qint64 matched = countMatchingRows(next.data(), m_lastSignature.data() + shift * kStride, overlap,
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
    std::optional<Signature> next = signature(frame, m_columns);
    if (!next)
        return {Kind::noMatch};

    const double stillness = stillnessRatio(*next);
    if (stillness >= kStillRatio)
        return {Kind::noMovement};

    const qint64 height = m_frameHeight;
    const qint64 minOverlap = std::max(height * kMinOverlapPercent / 100, kMinOverlapRows);
    const qint64 maxShift = height - minOverlap;
    const Alignment best = fineShift(*next, coarseShift(*next, maxShift), maxShift);

    if (best.score < kMinMatchScore || !(stillness + kMinGainOverStillness < best.score))
        return {stillness >= kMinMatchScore ? Kind::noMovement : Kind::noMatch};

    const qint64 rows = std::min(m_maxTotalHeight - m_totalHeight, best.shift);
    // A deep copy of the new rows: holding a view would keep the whole frame alive.
    QImage strip = copyOfRows(frame, int(height - best.shift), int(rows));
    if (strip.isNull())
        return {Kind::noMatch};

    m_slices.push_back(std::move(strip));
    m_totalHeight += rows;
    m_lastSignature = std::move(*next);
    if (m_totalHeight >= m_maxTotalHeight)
        return {Kind::limitReached};
    return {Kind::appended, rows};
}

QImage ScrollStitcher::compose() const
{
    if (m_slices.empty())
        return {};
    if (m_slices.size() == 1)
        return m_slices.front();

    // Opaque captures stay opaque; an opaque 0xffRRGGBB word is also a valid premultiplied pixel.
    const bool anyAlpha = std::any_of(m_slices.begin(), m_slices.end(), [](const QImage &slice) {
        return slice.format() == QImage::Format_ARGB32_Premultiplied;
    });
    QImage canvas = allocateImage(QSize(int(m_frameWidth), int(m_totalHeight)),
                                  anyAlpha ? QImage::Format_ARGB32_Premultiplied : QImage::Format_RGB32);
    if (canvas.isNull())
        return {};

    const std::size_t rowBytes = std::size_t(m_frameWidth) * sizeof(QRgb);
    int top = 0;
    for (const QImage &slice : m_slices) {
        for (int y = 0; y < slice.height(); ++y)
            std::memcpy(canvas.scanLine(top + y), slice.constScanLine(y), rowBytes);
        top += slice.height();
    }
    const QImage &first = m_slices.front();
    canvas.setColorSpace(first.colorSpace().isValid() ? first.colorSpace() : QColorSpace(QColorSpace::SRgb));
    canvas.setDevicePixelRatio(first.devicePixelRatio());
    return canvas;
}

} // namespace pixmora
