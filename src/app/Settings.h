#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QVariant>

#include <optional>

namespace pixmora {

// The user's settings, kept in an INI file and read afresh on every access so
// that a change made by another process (the command line) is seen at once.
// Reading takes bounded time whatever the file holds: a file that is too
// large, unreadable or not made of settings is set aside once as
// "<file>.damaged", and the defaults apply. Only the user may read the file.
class Settings {
public:
    explicit Settings(QString filePath);

    // Far more than the seven settings ever take.
    static constexpr qint64 maxFileSize = 64 * 1024;

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

    // At start: sets a damaged file aside, makes the file private to the
    // user and removes what an interrupted write of it left behind.
    void secure();

private:
    std::optional<QString> damage() const;
    bool usable() const;
    std::optional<bool> storedBool(const char *key) const;
    void store(const char *key, const QVariant &value);

    QString m_filePath;
    // The file as last looked at, so that an unchanged file is not checked again.
    struct Checked {
        qint64 size = -1;
        QDateTime modified;
        bool usable = true;
    };
    mutable Checked m_checked;
};

} // namespace pixmora
