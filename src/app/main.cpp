#include "app/AppDelegate.h"
#include "app/CommandLine.h"
#include "app/InstanceServer.h"
#include "app/Settings.h"
#include "history/CaptureHistoryStore.h"
#include "platform/x11/InodeFolderBookmarks.h"
#include "platform/x11/X11Platform.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>

#include <cstdio>

using namespace pixmora;

namespace {

void print(FILE *stream, const QString &text)
{
    std::fputs(text.toLocal8Bit().constData(), stream);
    std::fflush(stream);
}

int runTrayApp(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Pixmora"));
    QApplication::setApplicationVersion(QStringLiteral(PIXMORA_VERSION));
    QApplication::setQuitOnLastWindowClosed(false);

    InstanceServer instance;
    if (!instance.listen())
        return 0;  // already running in this session

    X11Platform x11;
    AppDelegate delegate(x11.platform(), Settings::defaultFilePath(), CaptureHistoryStore::defaultDirectory());
    instance.onCommand = [&delegate](const QStringList &arguments) { return delegate.runRemoteCommand(arguments); };
    delegate.applicationDidFinishLaunching();
    return app.exec();
}

// Hands the command to the running instance, starting one when none runs.
int forwardToInstance(const QStringList &arguments)
{
    std::optional<QString> reply = sendToRunningInstance(arguments, 1000);
    if (!reply) {
        if (!QProcess::startDetached(QCoreApplication::applicationFilePath(), {})) {
            print(stderr, QStringLiteral("pixmora: could not start Pixmora\n"));
            return 1;
        }
        const QDeadlineTimer deadline(10000);
        while (!reply && !deadline.hasExpired()) {
            QThread::msleep(100);
            reply = sendToRunningInstance(arguments, 1000);
        }
    }
    if (!reply) {
        print(stderr, QStringLiteral("pixmora: Pixmora did not answer\n"));
        return 1;
    }
    if (!reply->isEmpty()) {
        print(stderr, QStringLiteral("pixmora: %1\n").arg(*reply));
        return 1;
    }
    return 0;
}

int runSaveFolderCommand(const CommandLine &command, int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Settings settings(Settings::defaultFilePath());
    InodeFolderBookmarks bookmarks;
    SaveLocationStore store(settings, bookmarks);
    if (command.kind == CommandLine::Kind::showSaveFolder) {
        print(stdout, store.currentFolder().value_or(QStringLiteral("not set")) + QLatin1Char('\n'));
        return 0;
    }
    if (!store.setFolder(command.argument)) {
        print(stderr, QStringLiteral("pixmora: %1 is not a folder Pixmora can save into\n").arg(command.argument));
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
        print(stderr, QStringLiteral("pixmora: %1\nTry 'pixmora --help' for more information.\n").arg(command.argument));
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
