#include "app/Settings.h"

#include "platform/Logging.h"

#include <QSettings>
#include <QStandardPaths>

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

// An INI file stores booleans as the words true and false; anything else
// (a number, a list, other text) is not a boolean.
std::optional<bool> Settings::storedBool(const char *key) const
{
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

void Settings::store(const char *key, const QVariant &value)
{
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
    const QSettings settings(m_filePath, QSettings::IniFormat);
    const QVariant value = settings.value(QLatin1String(saveFolderBookmarkKey));
    return value.typeId() == QMetaType::QByteArray ? value.toByteArray() : QByteArray();
}

void Settings::setSaveFolderBookmark(const QByteArray &bookmark) { store(saveFolderBookmarkKey, bookmark); }

} // namespace pixmora
