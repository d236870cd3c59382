#include "PlatformTestSupport.h"

#include "platform/x11/QtClipboard.h"

#include <QBuffer>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace pixmora::e2e {
namespace {

QByteArray png(QColor colour)
{
    QImage image(8, 4, QImage::Format_RGB32);
    image.fill(colour);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QByteArray readClipboard(const QString &target)
{
    return runOnDesktop(QStringLiteral("xclip"),
                        {QStringLiteral("-selection"), QStringLiteral("clipboard"), QStringLiteral("-t"), target,
                         QStringLiteral("-o")})
        .output;
}

// Makes xclip own the clipboard with a file's contents as the given type.
void offerFromAnotherClient(const QString &type, const QByteArray &contents)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("contents"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(contents);
    file.close();
    ASSERT_TRUE(runOnDesktop(QStringLiteral("xclip"), {QStringLiteral("-selection"), QStringLiteral("clipboard"),
                                                       QStringLiteral("-t"), type, QStringLiteral("-i"), path})
                    .ok());
}

TEST(ClipboardTest, OffersTheFirstImageAsPngOnly)
{
    QtClipboard clipboard;
    const QByteArray first = png(Qt::red);
    clipboard.setPngImages({first, png(Qt::blue)});

    const QList<QByteArray> targets = readClipboard(QStringLiteral("TARGETS")).split('\n');
    EXPECT_TRUE(targets.contains("image/png"));
    for (const QByteArray &target : targets)
        EXPECT_TRUE(!target.startsWith("image/") || target == "image/png") << target.constData();
    EXPECT_FALSE(targets.contains("UTF8_STRING")) << "no text flavour";
    EXPECT_EQ(readClipboard(QStringLiteral("image/png")), first);
    EXPECT_TRUE(clipboard.hasImage());

    clipboard.clear();
    EXPECT_FALSE(clipboard.hasImage());
    EXPECT_FALSE(readClipboard(QStringLiteral("TARGETS")).contains("image/png"));
}

TEST(ClipboardTest, SeesImagesAndTextOfferedByOtherApplications)
{
    QtClipboard clipboard;
    offerFromAnotherClient(QStringLiteral("image/png"), png(Qt::green));
    EXPECT_TRUE(waitFor([&] { return clipboard.hasImage(); }));
    offerFromAnotherClient(QStringLiteral("UTF8_STRING"), "just text");
    EXPECT_TRUE(waitFor([&] { return !clipboard.hasImage(); }));
}

} // namespace
} // namespace pixmora::e2e
