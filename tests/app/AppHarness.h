#pragma once

#include "app/AppDelegate.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>

#include <memory>

namespace pixmora::test {

// The application over the fake platform, its files in a temporary directory.
// Display 1 is 800 x 600 points at scale 2; display 2, right of it, 640 x 480 at scale 1.
struct AppHarness {
    QTemporaryDir root;
    FakePlatform fake;
    std::unique_ptr<AppDelegate> app;

    AppHarness()
    {
        fake.screens.displayList = {FakeScreenCapture::display(1, {0, 0, 800, 600}, 2.0),
                                    FakeScreenCapture::display(2, {800, 0, 640, 480}, 1.0)};
        app = std::make_unique<AppDelegate>(fake.platform(), path("Pixmora.conf"), path("History"));
    }

    // A finished flow's overlay goes with deleteLater(); it must not outlive the fake desktop.
    ~AppHarness()
    {
        app.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    QString path(const QString &name) const { return root.filePath(name); }

    QString makeSaveFolder(const QString &name = "Shots")
    {
        QDir().mkpath(path(name));
        app->settings().setSaveFolderBookmark(*fake.bookmarks.create(path(name)));
        return path(name);
    }

    static QImage image(QSize size, QRgb colour)
    {
        QImage result(size, QImage::Format_RGB32);
        result.fill(colour);
        return result;
    }

    static int dpi(const QImage &image) { return qRound(image.dotsPerMeterX() * 0.0254); }
};

} // namespace pixmora::test
