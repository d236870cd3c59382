#pragma once

#include "VirtualDesktop.h"

#include <QDir>
#include <QImage>
#include <QTemporaryDir>

#include <memory>

namespace pixmora::e2e {

// The real binary on a private two-monitor desktop (LEFT at scale 2, RIGHT at
// scale 1), with a window manager and a tray host, and a home folder of its own.
class PixmoraSession {
public:
    PixmoraSession();
    ~PixmoraSession();

    VirtualDesktop &desktop() { return *m_desktop; }
    QString home() const { return m_home.path(); }
    QString historyFolder() const { return m_home.filePath(QStringLiteral(".local/share/Pixmora/History")); }
    QString settingsFile() const { return m_home.filePath(QStringLiteral(".config/Pixmora/Pixmora.conf")); }

    // Runs `pixmora arguments...` and waits for it.
    VirtualDesktop::Result pixmora(const QStringList &arguments, int timeoutMs = 15000);
    // Starts the tray app and waits until its tray icon is up.
    void startApp();
    void stopApp();

    // The root window as the X server holds it.
    QImage screen();
    VirtualDesktop::Result key(const QString &keys);
    QByteArray clipboard(const QString &type);

    static QStringList pngFiles(const QString &folder);
    // The most recently written PNG in the folder.
    static QImage newestImage(const QString &folder);
    // Pixels only: QImage's own comparison also weighs colour-space tags,
    // which ImageMagick writes and Pixmora does not.
    static bool samePixels(const QImage &a, const QImage &b);
    // Waits until the folder holds at least count PNG files.
    static bool waitForFiles(const QString &folder, int count, int timeoutMs = 10000);

private:
    QTemporaryDir m_home;
    std::unique_ptr<VirtualDesktop> m_desktop;
    pid_t m_app = -1;
};

} // namespace pixmora::e2e
