#include "app/CommandLine.h"

namespace pixmora {

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
