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

} // namespace pixmora
