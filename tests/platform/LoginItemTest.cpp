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

} // namespace pixmora
