#pragma once

// Long synthetic documents for the scroll stitcher's tests and benchmarks:
// text-like lines of varied widths, blocky pictures, rules, blank gaps and
// repeating stripes, drawn straight into RGB32 rows from a seeded generator.

#include <QImage>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace pixmora::synthetic {

enum class DocumentStyle {
    varied,         // text, pictures, rules and gaps under 48 rows: no overlap is ambiguous
    blankStretches, // like varied, with blank gaps longer than a frame
    stripes,        // like varied, with long runs of a repeating pattern
};

inline const char *styleName(DocumentStyle style)
{
    switch (style) {
    case DocumentStyle::varied:
        return "varied";
    case DocumentStyle::blankStretches:
        return "blank stretches";
    case DocumentStyle::stripes:
        return "stripes";
    }
    return "";
}

class DocumentPainter {
public:
    DocumentPainter(QImage &document, std::mt19937 &random)
        : m_document(document)
        , m_random(random)
    {
    }

    int uniform(int low, int high) { return std::uniform_int_distribution<int>(low, high)(m_random); }
    bool chance(double probability) { return std::bernoulli_distribution(probability)(m_random); }
    QRgb randomColor(int low, int high) { return qRgb(uniform(low, high), uniform(low, high), uniform(low, high)); }

    int width() const { return m_document.width(); }
    int height() const { return m_document.height(); }

    void fillRows(int top, int rows, QRgb color)
    {
        for (int y = top; y < std::min(top + rows, height()); ++y)
            std::fill_n(row(y), width(), color);
    }

    // Lines of "glyphs": little random bitmaps in a dark ink, separated by
    // letter and word spaces, each line ending at a random width.
    int paragraph(int top)
    {
        const int lineHeight = uniform(7, 16);
        const int leading = uniform(3, 9);
        const int lines = uniform(1, 8);
        const QRgb ink = chance(0.8) ? randomColor(0, 60) : qRgb(uniform(0, 40), uniform(40, 120), uniform(150, 230));
        const int margin = uniform(2, std::max(2, width() / 20));
        int y = top;
        for (int line = 0; line < lines && y + lineHeight <= height(); ++line) {
            const int end = margin + uniform(width() / 4, width() - 2 * margin);
            for (int x = margin; x < end;) {
                const int glyphWidth = uniform(3, 9);
                for (int gy = 0; gy < lineHeight; ++gy) {
                    QRgb *pixels = row(y + gy);
                    for (int gx = x; gx < std::min(x + glyphWidth, end); ++gx) {
                        if (chance(0.45))
                            pixels[gx] = ink;
                    }
                }
                x += glyphWidth + (chance(0.2) ? uniform(4, 8) : uniform(1, 2));
            }
            y += lineHeight + leading;
        }
        return y - top;
    }

    // A picture of coloured blocks with per-pixel grain, so that neighbouring rows differ.
    int picture(int top, int maxRows)
    {
        const int rows = std::min(uniform(24, 180), maxRows);
        const int left = uniform(0, width() / 4);
        const int right = width() - uniform(0, width() / 4);
        const int block = uniform(2, 6);
        std::vector<QRgb> blockColors(static_cast<std::size_t>((right - left) / block + 1));
        for (int y = 0; y < rows; ++y) {
            if (y % block == 0) {
                for (QRgb &color : blockColors)
                    color = randomColor(30, 225);
            }
            QRgb *pixels = row(top + y);
            for (int x = left; x < right; ++x) {
                const QRgb base = blockColors[std::size_t((x - left) / block)];
                const int grain = uniform(-30, 30);
                pixels[x] = qRgb(qRed(base) + grain, qGreen(base) + grain, qBlue(base) + grain);
            }
        }
        return rows;
    }

    // A horizontal line one or two pixels thick.
    int rule(int top)
    {
        const int thickness = uniform(1, 2);
        fillRows(top, thickness, randomColor(120, 220));
        return thickness;
    }

    // A run of identical bands repeating every period rows.
    int stripes(int top, int rows)
    {
        const int period = uniform(3, 40);
        std::vector<QRgb> pattern(static_cast<std::size_t>(period));
        for (QRgb &color : pattern)
            color = randomColor(0, 255);
        for (int y = 0; y < rows; ++y)
            fillRows(top + y, 1, pattern[std::size_t(y % period)]);
        return rows;
    }

private:
    QRgb *row(int y) { return reinterpret_cast<QRgb *>(m_document.scanLine(y)); }

    QImage &m_document;
    std::mt19937 &m_random;
};

// A document of the given size; "long" stretches are measured against frameHeight.
inline QImage makeDocument(int width, int height, int frameHeight, DocumentStyle style, std::mt19937 &random)
{
    QImage document(width, height, QImage::Format_RGB32);
    DocumentPainter painter(document, random);
    const QRgb paper = qRgb(255, 255, 255);
    painter.fillRows(0, height, paper);
    int y = 0;
    while (y < height) {
        const int room = height - y;
        if (style == DocumentStyle::blankStretches && painter.chance(0.05)) {
            y += painter.uniform(frameHeight / 2, 2 * frameHeight);
            continue;
        }
        if (style == DocumentStyle::stripes && painter.chance(0.05)) {
            y += painter.stripes(y, std::min(room, painter.uniform(frameHeight / 2, 2 * frameHeight)));
            continue;
        }
        // Gaps stay shorter than the smallest overlap the stitcher accepts (48 rows).
        const int pick = painter.uniform(0, 9);
        if (pick < 7)
            y += painter.paragraph(y);
        else if (pick < 9)
            y += painter.picture(y, room);
        else
            y += painter.rule(y);
        y += painter.uniform(4, 30);
    }
    return document;
}

// Random gray pixels: no two rows alike, no pattern that repeats.
inline QImage makeNoise(int width, int height, std::mt19937 &random, int darkest = 0, int lightest = 255)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        QRgb *pixels = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < width; ++x) {
            const int gray = darkest + int(random() % unsigned(lightest - darkest + 1));
            pixels[x] = qRgb(gray, gray, gray);
        }
    }
    return image;
}

// What a viewport of frameHeight rows shows with its top at document row top:
// a read-only view of the document's rows, so that long scrolls copy nothing.
inline QImage frameAt(const QImage &document, int top, int frameHeight)
{
    return QImage(document.constScanLine(top), document.width(), frameHeight, document.bytesPerLine(),
                  document.format());
}

// Equal size and equal pixels, whatever the two formats.
inline bool samePixels(const QImage &a, const QImage &b)
{
    if (a.size() != b.size())
        return false;
    // An RGB32 word is 0xffRRGGBB, which is also the premultiplied form of that opaque pixel.
    const auto premultiplied = [](const QImage &image) {
        const bool direct = image.format() == QImage::Format_RGB32 || image.format() == QImage::Format_ARGB32_Premultiplied;
        return direct ? image : image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    };
    const QImage left = premultiplied(a);
    const QImage right = premultiplied(b);
    const auto rowBytes = std::size_t(left.width()) * sizeof(QRgb);
    for (int y = 0; y < left.height(); ++y) {
        if (std::memcmp(left.constScanLine(y), right.constScanLine(y), rowBytes) != 0)
            return false;
    }
    return true;
}

} // namespace pixmora::synthetic
