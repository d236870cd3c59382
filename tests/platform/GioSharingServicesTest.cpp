#include "platform/x11/GioSharingServices.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace pixmora {
namespace {

void write(const QString &path, const QByteArray &text, bool executable = false)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(text) == text.size());
    if (executable)
        file.setPermissions(file.permissions() | QFile::ExeOwner);
}

QByteArray entry(const char *name, const QString &exec, const char *types, const char *extra = "")
{
    return QStringLiteral("[Desktop Entry]\nType=Application\nName=%1\nExec=%2 %f\nMimeType=%3\n%4")
        .arg(QLatin1String(name), exec, QLatin1String(types), QLatin1String(extra))
        .toUtf8();
}

// GIO reads the application folders once per process, on first use: this
// test must be the first here to use it.
TEST(GioSharingServices, ListsTheApplicationsForPngDefaultFirstAndStartsOneOnTheFile)
{
    QTemporaryDir data;
    qputenv("XDG_DATA_HOME", data.filePath("share").toLocal8Bit());
    qputenv("XDG_DATA_DIRS", data.filePath("system").toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", data.filePath("config").toLocal8Bit());
    qputenv("XDG_CONFIG_DIRS", data.filePath("system-config").toLocal8Bit());
    const QString record = data.filePath("record.sh");
    write(record, "#!/bin/sh\nprintf '%s' \"$1\" > \"$(dirname \"$0\")/opened\"\n", true);
    const QString applications = data.filePath("share/applications/");
    write(applications + "viewer.desktop", entry("Viewer", record, "image/png;", "Icon=image-viewer\n"));
    write(applications + "painter.desktop", entry("Painter", record, "image/jpeg;image/png;"));
    write(applications + "hidden.desktop", entry("Hidden", record, "image/png;", "NoDisplay=true\n"));
    write(applications + "notes.desktop", entry("Notes", record, "text/plain;"));
    write(data.filePath("config/mimeapps.list"), "[Default Applications]\nimage/png=painter.desktop\n");

    GioSharingServices sharing;
    QStringList found;
    for (const SharingServices::Application &application : sharing.pngApplications())
        found << application.name + " " + application.id + " " + application.iconName;
    EXPECT_EQ(found, (QStringList{"Painter painter.desktop ", "Viewer viewer.desktop image-viewer"}));

    const QString shared = data.filePath("Screenshot-1700000000.png");
    EXPECT_EQ(sharing.openWith("viewer.desktop", shared), std::nullopt);
    QFile opened(data.filePath("opened"));
    for (int wait = 0; wait < 200 && opened.size() == 0; ++wait)  // created before it is written
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    ASSERT_TRUE(opened.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromLocal8Bit(opened.readAll()), shared);

    EXPECT_TRUE(sharing.openWith("notes.desktop", shared).value_or("").contains("notes.desktop"));
}

} // namespace
} // namespace pixmora
