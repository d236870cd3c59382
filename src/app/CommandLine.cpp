#include "app/CommandLine.h"

namespace pixmora {

QString printable(const QString &text)
{
    QString result;
    result.reserve(text.size());
    for (qsizetype index = 0; index < text.size(); ++index) {
        const QChar c = text[index];
        // A surrogate pair is one printable character; a lone surrogate is not.
        if (c.isHighSurrogate() && index + 1 < text.size() && text[index + 1].isLowSurrogate()) {
            const char32_t code = QChar::surrogateToUcs4(c, text[index + 1]);
            if (QChar::category(code) != QChar::Other_Format) {
                result += c;
                result += text[++index];
                continue;
            }
        }
        const QChar::Category category = c.category();
        const bool unsafe = category == QChar::Other_Control || category == QChar::Other_Format
                            || category == QChar::Separator_Line || category == QChar::Separator_Paragraph
                            || category == QChar::Other_Surrogate || category == QChar::Other_NotAssigned
                            || c == QChar::ReplacementCharacter;
        if (c == QLatin1Char('\\'))
            result += QLatin1String("\\\\");
        else if (c == QLatin1Char('\n'))
            result += QLatin1String("\\n");
        else if (c == QLatin1Char('\t'))
            result += QLatin1String("\\t");
        else if (c == QLatin1Char('\r'))
            result += QLatin1String("\\r");
        else if (unsafe && c.unicode() < 0x100)
            result += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else if (unsafe)
            result += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
        else
            result += c;
    }
    return result;
}

QString usageText()
{
    return QStringLiteral(
        "Usage: pixmora [command]\n"
        "\n"
        "Without a command, starts Pixmora in the system tray (once per session).\n"
        "\n"
        "Commands:\n"
        "  capture area       drag out an area to capture, as Ctrl+Shift+1 does\n"
        "  capture window     click a window to capture, as Ctrl+Shift+2 does\n"
        "  capture screen     capture every display now, as Ctrl+Shift+3 does\n"
        "  capture scrolling  select the visible part of a long document, then scroll\n"
        "                     through it, as Ctrl+Shift+4 does; given again while it\n"
        "                     runs, finishes it\n"
        "  save-to DIR        save captures into DIR from now on\n"
        "  save-to            print the save folder, or \"not set\"\n"
        "\n"
        "Options:\n"
        "  --help             show this help\n"
        "  --version          show the version\n");
}

CommandLine parseCommandLine(const QStringList &arguments)
{
    using Kind = CommandLine::Kind;
    if (arguments.isEmpty())
        return {Kind::runApp, {}};
    const QString &first = arguments.first();
    if (arguments.size() == 1 && (first == QLatin1String("--help") || first == QLatin1String("-h")))
        return {Kind::help, {}};
    if (arguments.size() == 1 && first == QLatin1String("--version"))
        return {Kind::version, {}};
    if (first == QLatin1String("capture")) {
        static const QStringList kinds{QStringLiteral("area"), QStringLiteral("window"), QStringLiteral("screen"),
                                       QStringLiteral("scrolling")};
        if (arguments.size() != 2)
            return {Kind::invalid, QStringLiteral("capture needs one kind: %1").arg(kinds.join(QLatin1String(", ")))};
        if (!kinds.contains(arguments[1]))
            return {Kind::invalid, QStringLiteral("unknown capture kind \"%1\"").arg(arguments[1])};
        return {Kind::capture, arguments[1]};
    }
    if (first == QLatin1String("save-to")) {
        if (arguments.size() == 1)
            return {Kind::showSaveFolder, {}};
        if (arguments.size() == 2 && !arguments[1].isEmpty())
            return {Kind::setSaveFolder, arguments[1]};
        return {Kind::invalid, QStringLiteral("save-to takes one folder")};
    }
    return {Kind::invalid, QStringLiteral("unknown command \"%1\"").arg(first)};
}

} // namespace pixmora
