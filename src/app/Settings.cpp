#include "app/Settings.h"

#include "platform/AtomicFile.h"
#include "platform/Logging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QStringDecoder>

namespace pixmora {

namespace {
constexpr auto copyToClipboardKey = "copyToClipboard";
constexpr auto alsoCopyToClipboardKey = "alsoCopyToClipboard";
constexpr auto openAfterCaptureKey = "openAfterCapture";
constexpr auto windowShadowKey = "windowShadow";
constexpr auto saveFolderBookmarkKey = "saveFolderBookmark";
constexpr auto didAskLaunchAtLoginKey = "didAskLaunchAtLogin";
constexpr auto didRequestScreenRecordingKey = "didRequestScreenRecording";
} // namespace

Settings::Settings(QString filePath) : m_filePath(std::move(filePath)) {}

QString Settings::defaultFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
           + QStringLiteral("/Pixmora/Pixmora.conf");
}

namespace {
constexpr QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner;
constexpr QFile::Permissions othersMay = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther
                                         | QFile::WriteOther | QFile::ExeOther;
} // namespace

// Why the file cannot be the settings; nothing when it is fine or absent.
std::optional<QString> Settings::damage() const
{
    const QFileInfo info(m_filePath);
    if (!info.isFile())
        return QStringLiteral("it is not a file");
    if (info.size() > maxFileSize)
        return QStringLiteral("it is larger than %1 KiB").arg(maxFileSize / 1024);
    QFile file(m_filePath);
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("it cannot be read: %1").arg(file.errorString());
    const QByteArray bytes = file.read(maxFileSize + 1);
    if (bytes.size() > maxFileSize)
        return QStringLiteral("it is larger than %1 KiB").arg(maxFileSize / 1024);
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8(bytes);
    if (utf8.hasError())
        return QStringLiteral("it is not text");
    int number = 0;
    for (QStringView line : QStringView(text).split(QLatin1Char('\n'))) {
        ++number;
        for (const QChar c : line) {
            if (c.category() == QChar::Other_Control && c != QLatin1Char('\t') && c != QLatin1Char('\r'))
                return QStringLiteral("line %1 holds control characters").arg(number);
        }
        line = line.trimmed();
        const bool setting = line.isEmpty() || line.startsWith(QLatin1Char(';')) || line.startsWith(QLatin1Char('#'))
                             || (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']')))
                             || line.contains(QLatin1Char('='));
        if (!setting)
            return QStringLiteral("line %1 is not a setting").arg(number);
    }
    if (QSettings(m_filePath, QSettings::IniFormat).status() != QSettings::NoError)
        return QStringLiteral("it is not in the settings format");
    return std::nullopt;
}

// Checked again only when the file changed. A damaged file goes aside with
// one log line; when even that fails, the verdict stays until the file changes.
bool Settings::usable() const
{
    const QFileInfo info(m_filePath);
    if (!info.exists())
        return true;
    if (info.size() == m_checked.size && info.lastModified() == m_checked.modified)
        return m_checked.usable;
    m_checked = {info.size(), info.lastModified(), true};
    const std::optional<QString> reason = damage();
    if (!reason)
        return true;
    const QString aside = m_filePath + QStringLiteral(".damaged");
    QFile::remove(aside);  // the latest damaged file is the one worth keeping
    if (QFile::rename(m_filePath, aside)) {
        qCWarning(lcApp).noquote() << "The settings file" << m_filePath << "is damaged (" + *reason + ");"
                                   << "it was moved to" << aside << "and the defaults apply.";
        return true;
    }
    qCWarning(lcApp).noquote() << "The settings file" << m_filePath << "is damaged (" + *reason + ")"
                               << "and could not be moved aside; the defaults apply and nothing is stored.";
    m_checked.usable = false;
    return false;
}

void Settings::secure()
{
    if (!usable())
        return;
    if (QFileInfo::exists(m_filePath) && (QFile::permissions(m_filePath) & othersMay)
        && !QFile::setPermissions(m_filePath, ownerOnly))
        qCWarning(lcApp).noquote() << "Could not make the settings file private:" << m_filePath;
    const QString name = QFileInfo(m_filePath).fileName();
    removeAbandonedWrites(QFileInfo(m_filePath).path(), [&name](const QString &file) { return file == name; });
}

// An INI file stores booleans as the words true and false; anything else
// (a number, a list, other text) is not a boolean.
std::optional<bool> Settings::storedBool(const char *key) const
{
    if (!usable())
        return std::nullopt;
    const QSettings settings(m_filePath, QSettings::IniFormat);
    const QVariant value = settings.value(QLatin1String(key));
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (value.typeId() == QMetaType::QString) {
        const QString text = value.toString();
        if (text == QLatin1String("true"))
            return true;
        if (text == QLatin1String("false"))
            return false;
    }
    return std::nullopt;
}

// A new file is made private before anything is in it; QSettings keeps the
// permissions of the file it replaces.
void Settings::store(const char *key, const QVariant &value)
{
    if (!usable())
        return;
    if (!QFileInfo::exists(m_filePath)) {
        QDir().mkpath(QFileInfo(m_filePath).path());
        QFile(m_filePath).open(QIODevice::WriteOnly | QIODevice::NewOnly, ownerOnly);
    }
    QSettings settings(m_filePath, QSettings::IniFormat);
    settings.setValue(QLatin1String(key), value);
    settings.sync();
    if (settings.status() != QSettings::NoError)
        qCWarning(lcApp) << "Could not store the setting" << key << "in" << m_filePath;
}

bool Settings::copyToClipboard() const { return storedBool(copyToClipboardKey).value_or(false); }
bool Settings::openAfterCapture() const { return storedBool(openAfterCaptureKey).value_or(false); }
bool Settings::didAskLaunchAtLogin() const { return storedBool(didAskLaunchAtLoginKey).value_or(false); }
bool Settings::didRequestScreenRecording() const
{
    return storedBool(didRequestScreenRecordingKey).value_or(false);
}
bool Settings::alsoCopyToClipboard() const { return storedBool(alsoCopyToClipboardKey).value_or(true); }
bool Settings::windowShadow() const { return storedBool(windowShadowKey).value_or(true); }

void Settings::setCopyToClipboard(bool value) { store(copyToClipboardKey, value); }
void Settings::setAlsoCopyToClipboard(bool value) { store(alsoCopyToClipboardKey, value); }
void Settings::setOpenAfterCapture(bool value) { store(openAfterCaptureKey, value); }
void Settings::setWindowShadow(bool value) { store(windowShadowKey, value); }
void Settings::setDidAskLaunchAtLogin(bool value) { store(didAskLaunchAtLoginKey, value); }
void Settings::setDidRequestScreenRecording(bool value) { store(didRequestScreenRecordingKey, value); }

QByteArray Settings::saveFolderBookmark() const
{
    if (!usable())
        return {};
    const QSettings settings(m_filePath, QSettings::IniFormat);
    const QVariant value = settings.value(QLatin1String(saveFolderBookmarkKey));
    return value.typeId() == QMetaType::QByteArray ? value.toByteArray() : QByteArray();
}

void Settings::setSaveFolderBookmark(const QByteArray &bookmark) { store(saveFolderBookmarkKey, bookmark); }

} // namespace pixmora
