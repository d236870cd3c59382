#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <optional>

namespace pixmora {

// The user's settings, kept in an INI file and read afresh on every access so
// that a change made by another process (the command line) is seen at once.
class Settings {
public:
    explicit Settings(QString filePath);

    // $XDG_CONFIG_HOME/Pixmora/Pixmora.conf
    static QString defaultFilePath();

    // Plain reads: absent or not a boolean reads false.
    bool copyToClipboard() const;
    bool openAfterCapture() const;
    bool didAskLaunchAtLogin() const;
    bool didRequestScreenRecording() const;
    // Object-or-default reads: anything but a stored boolean reads true.
    bool alsoCopyToClipboard() const;
    bool windowShadow() const;

    void setCopyToClipboard(bool value);
    void setAlsoCopyToClipboard(bool value);
    void setOpenAfterCapture(bool value);
    void setWindowShadow(bool value);
    void setDidAskLaunchAtLogin(bool value);
    void setDidRequestScreenRecording(bool value);

    // Empty when absent or not data.
    QByteArray saveFolderBookmark() const;
    void setSaveFolderBookmark(const QByteArray &bookmark);

private:
    std::optional<bool> storedBool(const char *key) const;
    void store(const char *key, const QVariant &value);

    QString m_filePath;
};

} // namespace pixmora
