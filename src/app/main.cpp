#include "app/AppDelegate.h"
#include "app/CommandLine.h"
#include "app/InstanceClient.h"
#include "app/InstanceServer.h"
#include "app/Settings.h"
#include "history/CaptureHistoryStore.h"
#include "platform/Error.h"
#include "platform/x11/InodeFolderBookmarks.h"
#include "platform/x11/PosixLocalSecurity.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11Platform.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QProcess>

#include <cstdio>

using namespace pixmora;

namespace {

void print(FILE *stream, const QString &text)
{
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fflush(stream);
}

int cannotStart(const QString &reason)
{
    print(stderr, InstanceClient::startFailureLine(printable(reason)) + QLatin1Char('\n'));
    return 1;
}

int runTrayApp(int argc, char **argv)
{
    if (const std::optional<QString> problem = X11Connection::displayProblem())
        return cannotStart(*problem);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Pixmora"));
    QApplication::setApplicationVersion(QStringLiteral(PIXMORA_VERSION));
    QApplication::setQuitOnLastWindowClosed(false);

    PosixLocalSecurity security;
    InstanceServer instance(security, InstanceLocation::forThisSession(security));
    const InstanceServer::Start start = instance.listen();
    if (start.kind == InstanceServer::Start::Kind::alreadyRunning)
        return 0;
    if (start.kind == InstanceServer::Start::Kind::failed)
        return cannotStart(start.failure);

    try {
        X11Platform x11;
        AppDelegate delegate(x11.platform(), Settings::defaultFilePath(), CaptureHistoryStore::defaultDirectory());
        instance.onCommand = [&delegate](const QStringList &arguments, const InstanceServer::Answer &answer) {
            delegate.runRemoteCommand(arguments, answer);
        };
        delegate.applicationDidFinishLaunching();
        return app.exec();
    } catch (const Error &error) {
        return cannotStart(error.description());
    }
}

// A tray started for a command keeps running after it: its error output goes
// to a log beside its socket, where the command finds why it could not start.
std::optional<qint64> startTrayInBackground(const QString &logPath)
{
    QProcess tray;
    tray.setProgram(QCoreApplication::applicationFilePath());
    tray.setWorkingDirectory(QDir::homePath());
    tray.setStandardInputFile(QProcess::nullDevice());
    tray.setStandardOutputFile(QProcess::nullDevice());
    tray.setStandardErrorFile(logPath, QIODevice::Append);
    qint64 pid = 0;
    if (!tray.startDetached(&pid))
        return std::nullopt;
    return pid;
}

int forwardToInstance(const QStringList &arguments)
{
    PosixLocalSecurity security;
    const InstanceLocation location = InstanceLocation::forThisSession(security);
    InstanceClient client(security, location, [&location] { return startTrayInBackground(location.logPath); });
    const InstanceClient::Outcome outcome = client.send(arguments);
    if (outcome.ran)
        return 0;
    print(stderr, QStringLiteral("pixmora: %1\n").arg(printable(outcome.reason)));
    return 1;
}

int runSaveFolderCommand(const CommandLine &command, int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Settings settings(Settings::defaultFilePath());
    InodeFolderBookmarks bookmarks;
    SaveLocationStore store(settings, bookmarks);
    if (command.kind == CommandLine::Kind::showSaveFolder) {
        const std::optional<QString> folder = store.currentFolder();
        print(stdout, (folder ? printable(*folder) : QStringLiteral("not set")) + QLatin1Char('\n'));
        return 0;
    }
    if (!store.setFolder(command.argument)) {
        print(stderr,
              QStringLiteral("pixmora: %1 is not a folder Pixmora can save into\n").arg(printable(command.argument)));
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QStringList arguments;
    for (int index = 1; index < argc; ++index)
        arguments << QString::fromLocal8Bit(argv[index]);

    const CommandLine command = parseCommandLine(arguments);
    switch (command.kind) {
    case CommandLine::Kind::help:
        print(stdout, usageText());
        return 0;
    case CommandLine::Kind::version:
        print(stdout, QStringLiteral("Pixmora %1\n").arg(QStringLiteral(PIXMORA_VERSION)));
        return 0;
    case CommandLine::Kind::invalid:
        print(stderr, QStringLiteral("pixmora: %1\nTry 'pixmora --help' for more information.\n").arg(printable(command.argument)));
        return 2;
    case CommandLine::Kind::capture: {
        QCoreApplication app(argc, argv);
        return forwardToInstance(arguments);
    }
    case CommandLine::Kind::setSaveFolder:
    case CommandLine::Kind::showSaveFolder:
        return runSaveFolderCommand(command, argc, argv);
    case CommandLine::Kind::runApp:
        break;
    }
    return runTrayApp(argc, argv);
}
