#pragma once

#include "app/AppDelegate.h"
#include "platform/fake/FakePlatform.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QTemporaryDir>
#include <QWidget>

#include <memory>

namespace pixmora::test {

// An application controller over the fake platform, with its settings,
// history and save folder in a temporary directory.
struct AppHarness {
    QTemporaryDir root;
    FakePlatform fake;
    std::unique_ptr<AppDelegate> app;

    explicit AppHarness(bool withHistory = true)
    {
        fake.screens.displayList = {FakeScreenCapture::display(1, {0, 0, 800, 600}, 2.0),
                                    FakeScreenCapture::display(2, {800, 0, 640, 480}, 1.0)};
        app = std::make_unique<AppDelegate>(fake.platform(), path(QStringLiteral("Pixmora.conf")),
                                            withHistory ? std::optional<QString>(path(QStringLiteral("History")))
                                                        : std::nullopt);
    }

    QString path(const QString &name) const { return root.filePath(name); }

    QString makeSaveFolder(const QString &name = QStringLiteral("Shots"))
    {
        QDir(root.path()).mkpath(name);
        app->settings().setSaveFolderBookmark(*fake.bookmarks.create(path(name)));
        return path(name);
    }

    QStringList filesIn(const QString &folder) const
    {
        return QDir(folder).entryList(QDir::Files, QDir::Name);
    }

    static QImage image(int width, int height, QRgb colour)
    {
        QImage result(width, height, QImage::Format_RGB32);
        result.fill(colour);
        return result;
    }

    static QWidget *visibleThumbnail()
    {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (widget->objectName() == QLatin1String("PixmoraPreview") && widget->isVisible())
                return widget;
        }
        return nullptr;
    }
};

} // namespace pixmora::test
