#include "platform/x11/AutostartLoginItem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace pixmora {

namespace {

bool write(const QString &path, const QByteArray &contents)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size();
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

// The session turns an entry off with Hidden or the GNOME key; enabling turns it on again.
TEST(LoginItem, EntryIsWrittenReadAsTheSessionReadsItAndFailuresNameThePath)
{
    QTemporaryDir root;
    const QString folder = root.filePath("config/autostart"), entry = folder + "/pixmora.desktop";
    AutostartLoginItem item{folder};
    ASSERT_EQ(item.enable(), std::nullopt);
    EXPECT_TRUE(contents(entry).startsWith("[Desktop Entry]\n"));
    EXPECT_TRUE(contents(entry).contains("\nExec=\"" + QCoreApplication::applicationFilePath().toUtf8() + "\"\n"));
    EXPECT_TRUE(item.isEnabled());
    for (const auto &[text, enabled] : {std::pair{"Hidden = true\n", false}, {"X-GNOME-Autostart-enabled=false\n", false},
                                        {"[Desktop Action x]\nHidden=true\n", true}}) {
        ASSERT_TRUE(write(entry, QByteArray("[Desktop Entry]\nExec=pixmora\n") + text));
        EXPECT_EQ(item.isEnabled(), enabled) << text;
    }
    EXPECT_EQ(item.disable(), std::nullopt);
    EXPECT_FALSE(item.isEnabled());
    // As root, permissions cannot fail it: a folder stands where the entry should be.
    ASSERT_TRUE(QDir().mkpath(entry + "/inside"));
    const auto failure = item.enable();
    ASSERT_TRUE(failure);
    EXPECT_TRUE(failure->contains(entry) || failure->contains(folder)) << qPrintable(*failure);
}

} // namespace pixmora
