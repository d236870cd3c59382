#include "PixmoraSession.h"

#include <QFile>
#include <QThread>

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

namespace pixmora::e2e {

namespace {
QString binary() { return qEnvironmentVariable("PIXMORA_BINARY"); }
} // namespace

PixmoraSession::PixmoraSession()
{
    VirtualDesktop::Options options;
    options.size = QSize(3840, 2160);
    options.monitors = VirtualDesktop::leftAndRight(options.size);
    options.windowManager = true;
    options.trayHost = true;
    m_desktop = std::make_unique<VirtualDesktop>(options);

    // Children get our home and settings; the question about launching at
    // login is answered already so that it does not sit over the screen.
    qputenv("HOME", m_home.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", m_home.filePath(QStringLiteral(".config")).toLocal8Bit());
    qputenv("XDG_DATA_HOME", m_home.filePath(QStringLiteral(".local/share")).toLocal8Bit());
    qputenv("QT_SCREEN_SCALE_FACTORS", "LEFT=2;RIGHT=1");
    QDir().mkpath(QFileInfo(settingsFile()).path());
    QFile settings(settingsFile());
    if (!settings.open(QIODevice::WriteOnly) || settings.write("[General]\ndidAskLaunchAtLogin=true\n") < 0)
        throw std::runtime_error("cannot write the settings");
}

PixmoraSession::~PixmoraSession() { stopApp(); }

VirtualDesktop::Result PixmoraSession::pixmora(const QStringList &arguments, int timeoutMs)
{
    return m_desktop->run(binary(), arguments, timeoutMs);
}

void PixmoraSession::startApp()
{
    m_app = m_desktop->start(binary(), {});
    // The tray icon is created just before the shortcuts are grabbed.
    const bool up = VirtualDesktop::waitUntil(
        [this] { return m_desktop->run(QStringLiteral("xdotool"), {QStringLiteral("search"), QStringLiteral("--classname"), QStringLiteral("^pixmora$")}).ok(); },
        15000);
    if (!up)
        throw std::runtime_error("Pixmora's tray icon did not appear");
    QThread::msleep(300);
}

void PixmoraSession::stopApp()
{
    if (m_app > 0)
        m_desktop->stop(m_app);
    m_app = -1;
}

QImage PixmoraSession::screen()
{
    const QString path = m_home.filePath(QStringLiteral("screen.png"));
    m_desktop->run(QStringLiteral("import"), {QStringLiteral("-window"), QStringLiteral("root"), path}, 20000);
    return QImage(path).convertToFormat(QImage::Format_RGB32);
}

VirtualDesktop::Result PixmoraSession::key(const QString &keys)
{
    return m_desktop->run(QStringLiteral("xdotool"), {QStringLiteral("key"), keys});
}

QByteArray PixmoraSession::clipboard(const QString &type)
{
    return m_desktop
        ->run(QStringLiteral("xclip"), {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"), type, QStringLiteral("-o")})
        .output;
}

QStringList PixmoraSession::pngFiles(const QString &folder)
{
    return QDir(folder).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
}

QImage PixmoraSession::newestImage(const QString &folder)
{
    const QStringList files = QDir(folder).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Time);
    return files.isEmpty() ? QImage() : QImage(QDir(folder).filePath(files.first()));
}

bool PixmoraSession::samePixels(const QImage &a, const QImage &b)
{
    const QImage x = a.convertToFormat(QImage::Format_RGB888);
    const QImage y = b.convertToFormat(QImage::Format_RGB888);
    if (x.size() != y.size())
        return false;
    for (int row = 0; row < x.height(); ++row) {
        if (std::memcmp(x.constScanLine(row), y.constScanLine(row), size_t(x.width()) * 3) != 0)
            return false;
    }
    return true;
}

bool PixmoraSession::waitForFiles(const QString &folder, int count, int timeoutMs)
{
    return VirtualDesktop::waitUntil([&] { return pngFiles(folder).size() >= count; }, timeoutMs);
}

} // namespace pixmora::e2e
