#include "platform/x11/AutostartLoginItem.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace pixmora {
namespace {

class LoginItemTest : public ::testing::Test {
protected:
    QTemporaryDir root;
    QString folder = root.filePath(QStringLiteral("config/autostart"));
    QString entry = folder + QStringLiteral("/pixmora.desktop");
    AutostartLoginItem item{folder};

    void writeEntry(const QByteArray &contents)
    {
        ASSERT_TRUE(QDir().mkpath(folder));
        QFile file(entry);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }

    QStringList entryLines()
    {
        QFile file(entry);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'));
    }
};

TEST_F(LoginItemTest, EnableWritesADesktopEntryAndDisableDeletesIt)
{
    EXPECT_FALSE(item.isEnabled());

    EXPECT_EQ(item.enable(), std::nullopt);
    EXPECT_TRUE(item.isEnabled());
    const QStringList lines = entryLines();
    EXPECT_EQ(lines.value(0), QStringLiteral("[Desktop Entry]"));
    for (const QString &line :
         {QStringLiteral("Type=Application"), QStringLiteral("Name=Pixmora"),
          QStringLiteral("Exec=\"%1\"").arg(QCoreApplication::applicationFilePath()),
          QStringLiteral("X-GNOME-Autostart-enabled=true")})
        EXPECT_TRUE(lines.contains(line)) << qPrintable(line);

    EXPECT_EQ(item.disable(), std::nullopt);
    EXPECT_FALSE(QFile::exists(entry));
    EXPECT_FALSE(item.isEnabled());
    EXPECT_EQ(item.disable(), std::nullopt) << "nothing to delete is not a failure";
}

TEST_F(LoginItemTest, EntryTurnedOffBySessionReadsDisabledUntilEnabledAgain)
{
    writeEntry("[Desktop Entry]\nType=Application\nExec=pixmora\nHidden = true\n");
    EXPECT_FALSE(item.isEnabled());
    writeEntry("[Desktop Entry]\nExec=pixmora\nX-GNOME-Autostart-enabled=false\n");
    EXPECT_FALSE(item.isEnabled());
    writeEntry("[Desktop Entry]\nExec=pixmora\nHidden=false\n[Desktop Action x]\nHidden=true\n");
    EXPECT_TRUE(item.isEnabled()) << "only the main group counts";

    writeEntry("[Desktop Entry]\nHidden=true\n");
    EXPECT_EQ(item.enable(), std::nullopt);
    EXPECT_TRUE(item.isEnabled());
}

// The tests run as root, so permissions cannot make these fail: a file stands
// where the folder should be, and a folder where the entry should be.
TEST_F(LoginItemTest, FailuresAnswerTheSystemsErrorText)
{
    ASSERT_TRUE(QDir().mkpath(QFileInfo(folder).path()));
    QFile blocker(folder);
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    const auto enableError = item.enable();
    ASSERT_TRUE(enableError);
    EXPECT_TRUE(enableError->contains(folder)) << qPrintable(*enableError);
    EXPECT_TRUE(enableError->contains(QString::fromLocal8Bit(std::strerror(ENOTDIR)))) << qPrintable(*enableError);
    EXPECT_FALSE(item.isEnabled());

    ASSERT_TRUE(blocker.remove());
    ASSERT_TRUE(QDir().mkpath(entry + QStringLiteral("/inside")));
    const auto disableError = item.disable();
    ASSERT_TRUE(disableError);
    EXPECT_TRUE(disableError->contains(entry)) << qPrintable(*disableError);
    EXPECT_GT(disableError->size(), entry.size() + 2) << qPrintable(*disableError);
}

} // namespace
} // namespace pixmora
