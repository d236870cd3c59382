#pragma once

// Terminal output rendered in a monospace font, the kind of text whose lines
// look alike: number columns, numbered lines, time-stamped logs, and for
// contrast prose and code. A document is rendered whole once, so frames cut
// from it are exact. Shared by the unit tests and the benchmarks; rendering
// needs a QGuiApplication.

#include <QFont>
#include <QImage>
#include <QPainter>
#include <QString>
#include <QStringList>

#include <array>
#include <random>

namespace pixmora::synthetic {

enum class TerminalText { numbers, numberedLines, serviceLog, prose, code };
inline constexpr std::array kTerminalTexts{TerminalText::numbers, TerminalText::numberedLines, TerminalText::serviceLog,
                                           TerminalText::prose, TerminalText::code};

// An xterm of 90 columns with DejaVu Sans Mono in 20-pixel lines; a wheel notch scrolls 5 lines.
inline constexpr int kTerminalWidth = 720;
inline constexpr int kTerminalLineHeight = 20;
inline constexpr int kTerminalFrameHeight = 40 * kTerminalLineHeight;
inline constexpr int kWheelNotch = 5 * kTerminalLineHeight;

inline QStringList terminalLines(TerminalText text, int count, std::mt19937 &random)
{
    const auto uniform = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); };
    const QStringList words{"the", "a", "of", "scroll", "window", "capture", "and", "image", "while", "frame", "user",
                            "content", "moves", "up", "is", "to", "every", "page", "line", "text", "in", "from"};
    const auto word = [&] { return words[uniform(0, int(words.size()) - 1)]; };
    QStringList lines;
    for (int number = uniform(1, 3000 - count), milliseconds = 50537123; lines.size() < count; ++number) {
        switch (text) {
        case TerminalText::numbers: // seq 1 3000
            lines << QString::number(number);
            break;
        case TerminalText::numberedLines:
            lines << QStringLiteral("line %1 of a long document").arg(number, 5, 10, QLatin1Char('0'));
            break;
        case TerminalText::serviceLog:
            milliseconds += uniform(1, 900);
            lines << QStringLiteral("2026-11-23 %1:%2:%3.%4 %5  worker[%6]: request %7 %8")
                         .arg(milliseconds / 3600000 % 24, 2, 10, QLatin1Char('0'))
                         .arg(milliseconds / 60000 % 60, 2, 10, QLatin1Char('0'))
                         .arg(milliseconds / 1000 % 60, 2, 10, QLatin1Char('0'))
                         .arg(milliseconds % 1000, 3, 10, QLatin1Char('0'))
                         .arg(uniform(0, 9) == 0 ? "WARN" : "INFO")
                         .arg(uniform(1, 8))
                         .arg(number)
                         .arg(uniform(0, 3) == 0 ? QStringLiteral("retried after timeout")
                                                 : QStringLiteral("done in %1 ms").arg(uniform(1, 250)));
            break;
        case TerminalText::prose: {
            QString line = word();
            for (const int length = uniform(30, 88); line.size() < length;)
                line += QLatin1Char(' ') + word();
            lines << line << (uniform(0, 7) == 0 ? QStringList{QString()} : QStringList{});
            break;
        }
        case TerminalText::code: { // many lines repeat: braces, returns, blank lines
            const QString name = word() + QLatin1Char('_') + word();
            lines << QStringLiteral("int %1(const Frame &frame, int rows)").arg(name) << QStringLiteral("{");
            for (int statement = uniform(1, 6); statement > 0; --statement) {
                if (uniform(0, 2) == 0)
                    lines << QStringLiteral("    if (rows > %1) {").arg(uniform(0, 99))
                          << QStringLiteral("        return %1(frame, rows - 1);").arg(name) << QStringLiteral("    }");
                else
                    lines << QStringLiteral("    rows += frame.%1;").arg(word());
            }
            lines << QStringLiteral("    return rows;") << QStringLiteral("}") << QString();
            break;
        }
        }
    }
    return lines.mid(0, count);
}

// Black text on white, one line every 20 pixels, as the terminal shows it.
inline QImage renderTerminal(const QStringList &lines)
{
    QImage document(kTerminalWidth, int(lines.size()) * kTerminalLineHeight, QImage::Format_RGB32);
    document.fill(Qt::white);
    QFont font(QStringLiteral("DejaVu Sans Mono"));
    font.setPixelSize(13); // 8 pixels a column
    QPainter painter(&document);
    painter.setFont(font);
    painter.setPen(Qt::black);
    for (int line = 0; line < lines.size(); ++line)
        painter.drawText(2, line * kTerminalLineHeight + 15, lines[line]);
    return document;
}

} // namespace pixmora::synthetic
