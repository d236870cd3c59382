#include "platform/x11/AutostartLoginItem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace pixmora {

// The session turns an entry off with Hidden or the GNOME key; enabling turns it on again.
TEST(LoginItem, EntryIsWrittenReadAsTheSessionReadsItAndFailuresNameThePath)
{
    QTemporaryDir root;
    const QString folder = root.filePath(QStringLiteral("config/autostart"));
    const QString entry = folder + QStringLiteral("/pixmora.desktop");
    AutostartLoginItem item{folder};
    const auto write = [&](const QByteArray &contents) {
        QFile file(entry);
        return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
    };

    ASSERT_EQ(item.enable(), std::nullopt);
    QFile written(entry);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    const QByteArray contents = written.readAll();
    EXPECT_TRUE(contents.startsWith("[Desktop Entry]\n"));
    EXPECT_TRUE(contents.contains("\nExec=\"" + QCoreApplication::applicationFilePath().toUtf8() + "\"\n"));
    EXPECT_TRUE(item.isEnabled());

    ASSERT_TRUE(write("[Desktop Entry]\nExec=pixmora\nHidden = true\n"));
    EXPECT_FALSE(item.isEnabled());
    ASSERT_TRUE(write("[Desktop Entry]\nExec=pixmora\nX-GNOME-Autostart-enabled=false\n"));
    EXPECT_FALSE(item.isEnabled());
    ASSERT_TRUE(write("[Desktop Entry]\nExec=pixmora\n[Desktop Action x]\nHidden=true\n"));
    EXPECT_TRUE(item.isEnabled()) << "only the main group counts";

    EXPECT_EQ(item.disable(), std::nullopt);
    EXPECT_FALSE(item.isEnabled());
    EXPECT_EQ(item.disable(), std::nullopt) << "nothing to delete is not a failure";

    // As root, permissions cannot fail it: a folder stands where the entry should be.
    ASSERT_TRUE(QDir().mkpath(entry + QStringLiteral("/inside")));
    const auto failure = item.enable();
    ASSERT_TRUE(failure);
    EXPECT_TRUE(failure->contains(entry) || failure->contains(folder)) << qPrintable(*failure);
}

// An installed entry is copied only when it starts the running binary.
TEST(LoginItem, InstalledEntryThatStartsThisBinaryBecomesTheAutostartEntry)
{
    QTemporaryDir root;
    const QString installed = root.filePath(QStringLiteral("org.pixmora.Pixmora.desktop"));
    const QString autostart = root.filePath(QStringLiteral("autostart/pixmora.desktop"));
    const auto writeInstalled = [&](const QString &exec) {
        QFile file(installed);
        const QByteArray text = "[Desktop Entry]\nName=Pixmora\nIcon=org.pixmora.Pixmora\nExec=" + exec.toUtf8() +
                                "\n\n[Desktop Action CaptureArea]\nExec=" + exec.toUtf8() + " capture area\n";
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
    };
    const auto autostartText = [&] {
        QFile file(autostart);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    };
    AutostartLoginItem item{root.filePath(QStringLiteral("autostart")), installed};

    ASSERT_TRUE(writeInstalled(QCoreApplication::applicationFilePath()));
    ASSERT_EQ(item.enable(), std::nullopt);
    EXPECT_TRUE(autostartText().startsWith("[Desktop Entry]\nX-GNOME-Autostart-enabled=true\nName=Pixmora\nIcon=org.pixmora.Pixmora\n"));
    EXPECT_TRUE(item.isEnabled());

    // Another program of the same name (an older install, say) must not start instead of this one.
    ASSERT_TRUE(writeInstalled(QStringLiteral("/usr/bin/true")));
    ASSERT_EQ(item.enable(), std::nullopt);
    EXPECT_FALSE(autostartText().contains("Icon=")) << autostartText().constData();
    EXPECT_TRUE(autostartText().contains("Exec=\"" + QCoreApplication::applicationFilePath().toUtf8() + "\""));
}

} // namespace pixmora
