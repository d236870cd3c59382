#pragma once

#include <QString>
#include <QStringList>

namespace pixmora {

// What one start of the binary was asked to do.
struct CommandLine {
    enum class Kind { runApp, capture, setSaveFolder, showSaveFolder, help, version, invalid };
    Kind kind = Kind::runApp;
    QString argument;  // capture kind, folder, or the reason the line is invalid
};

// arguments excludes the program name.
CommandLine parseCommandLine(const QStringList &arguments);
QString usageText();

// Text from outside (a path, an argument, the tray's answer) made safe for a
// terminal and unambiguous: a backslash becomes \\, control and format
// characters (escape sequences, line breaks, bidirectional overrides) become
// \n, \t, \r or \xHH / \uHHHH, so every printed path takes exactly one line.
QString printable(const QString &text);

} // namespace pixmora
