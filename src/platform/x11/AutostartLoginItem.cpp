#include "platform/x11/AutostartLoginItem.h"

#include "platform/AtomicFile.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <filesystem>
#include <system_error>

namespace pixmora {

namespace {

// The Exec key's rules: the whole program path in double quotes, where a
// backslash goes before each ", `, $ and backslash; then, as in every string
// value, backslashes doubled, and % doubled so that it is no field code.
QString execValue(const QString &program)
{
    QString quoted = QStringLiteral("\"");
    for (const QChar c : program) {
        if (c == QLatin1Char('"') || c == QLatin1Char('`') || c == QLatin1Char('$') || c == QLatin1Char('\\'))
            quoted += QLatin1Char('\\');
        quoted += c;
    }
    quoted += QLatin1Char('"');
    return quoted.replace(QLatin1Char('\\'), QLatin1String("\\\\"))
        .replace(QLatin1Char('%'), QLatin1String("%%"))
        .replace(QLatin1Char('\n'), QLatin1String("\\n"));
}

QByteArray generatedEntry()
{
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=Pixmora\n"
                                        "Comment=Screenshot utility in the system tray\n"
                                        "Exec=%1\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(execValue(QCoreApplication::applicationFilePath()));
    return text.toUtf8();
}

// The value of a key of the main group, or nothing.
std::optional<QByteArray> mainGroupValue(const QByteArray &entry, const QByteArray &wanted)
{
    bool inMainGroup = false;
    for (const QByteArray &rawLine : entry.split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        const qsizetype equals = line.indexOf('=');
        if (inMainGroup && equals > 0 && line.left(equals).trimmed() == wanted)
            return line.mid(equals + 1).trimmed();
    }
    return std::nullopt;
}

// The installed entry made autostart-ready, when its Exec starts the running binary.
std::optional<QByteArray> autostartCopyOf(const QString &installedEntry)
{
    QFile file(installedEntry);
    if (installedEntry.isEmpty() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray entry = file.readAll();
    const QByteArray mainGroup = "[Desktop Entry]\n";
    const std::optional<QByteArray> exec = mainGroupValue(entry, "Exec");
    if (!exec || !entry.startsWith(mainGroup))
        return std::nullopt;
    const QString program = QString::fromUtf8(exec->split(' ').first());
    const QString resolved = program.contains(QLatin1Char('/')) ? program : QStandardPaths::findExecutable(program);
    const QString running = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
    if (resolved.isEmpty() || QFileInfo(resolved).canonicalFilePath() != running)
        return std::nullopt;
    entry.insert(mainGroup.size(), "X-GNOME-Autostart-enabled=true\n");
    return entry;
}

QString failure(const QString &path, const QString &reason)
{
    return QStringLiteral("%1: %2").arg(path, reason);
}

} // namespace

AutostartLoginItem::AutostartLoginItem(QString autostartFolder, QString installedEntry)
    : m_autostartFolder(std::move(autostartFolder)), m_installedEntry(std::move(installedEntry))
{
}

QString AutostartLoginItem::autostartFolder() const
{
    if (!m_autostartFolder.isEmpty())
        return m_autostartFolder;
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/autostart");
}

QString AutostartLoginItem::entryPath() const { return autostartFolder() + QStringLiteral("/pixmora.desktop"); }

QByteArray AutostartLoginItem::entryText() const
{
    const QString installed = !m_installedEntry.isEmpty()
        ? m_installedEntry
        : QStandardPaths::locate(QStandardPaths::ApplicationsLocation, QStringLiteral("org.pixmora.Pixmora.desktop"));
    return autostartCopyOf(installed).value_or(generatedEntry());
}

// Sessions skip an entry marked Hidden; GNOME's own switch for an entry is
// X-GNOME-Autostart-enabled, so an entry turned off there reads as off here too.
bool AutostartLoginItem::isEnabled()
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    const QByteArray entry = file.readAll();
    return mainGroupValue(entry, "Hidden") != "true" && mainGroupValue(entry, "X-GNOME-Autostart-enabled") != "false";
}

std::optional<QString> AutostartLoginItem::enable()
{
    const QString folder = autostartFolder();
    std::error_code error;
    std::filesystem::create_directories(QFile::encodeName(folder).toStdString(), error);
    if (error)
        return failure(folder, QString::fromLocal8Bit(error.message()));

    if (const std::optional<QString> reason = writeFileAtomically(entryPath(), entryText()))
        return failure(entryPath(), *reason);
    return std::nullopt;
}

std::optional<QString> AutostartLoginItem::disable()
{
    QFile file(entryPath());
    if (!QFileInfo::exists(file.fileName()) || file.remove())
        return std::nullopt;
    return failure(file.fileName(), file.errorString());
}

} // namespace pixmora
