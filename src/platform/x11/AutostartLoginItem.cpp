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

QByteArray desktopEntry()
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

QString failure(const QString &path, const QString &reason)
{
    return QStringLiteral("%1: %2").arg(path, reason);
}

} // namespace

AutostartLoginItem::AutostartLoginItem(QString autostartFolder) : m_autostartFolder(std::move(autostartFolder)) {}

QString AutostartLoginItem::autostartFolder() const
{
    if (!m_autostartFolder.isEmpty())
        return m_autostartFolder;
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + QStringLiteral("/autostart");
}

QString AutostartLoginItem::entryPath() const { return autostartFolder() + QStringLiteral("/pixmora.desktop"); }

// Sessions skip an entry marked Hidden; GNOME's own switch for an entry is
// X-GNOME-Autostart-enabled, so an entry turned off there reads as off here too.
bool AutostartLoginItem::isEnabled()
{
    QFile file(entryPath());
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        const qsizetype equals = line.indexOf('=');
        if (!inMainGroup || equals < 0)
            continue;
        const QByteArray key = line.left(equals).trimmed();
        const QByteArray value = line.mid(equals + 1).trimmed();
        if ((key == "Hidden" && value == "true") || (key == "X-GNOME-Autostart-enabled" && value == "false"))
            return false;
    }
    return true;
}

std::optional<QString> AutostartLoginItem::enable()
{
    const QString folder = autostartFolder();
    std::error_code error;
    std::filesystem::create_directories(QFile::encodeName(folder).toStdString(), error);
    if (error)
        return failure(folder, QString::fromLocal8Bit(error.message()));

    if (const std::optional<QString> reason = writeFileAtomically(entryPath(), desktopEntry()))
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
