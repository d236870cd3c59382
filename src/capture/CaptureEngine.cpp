#include "capture/CaptureEngine.h"

#include "image/PngEncoder.h"
#include "image/WindowShadow.h"
#include "platform/AtomicFile.h"
#include "platform/ScreenCapture.h"

#include <QFileInfo>

#include <cmath>

namespace pixmora::CaptureEngine {
namespace {

constexpr double scaleWithoutDisplays = 2.0;

double mainDisplayScale(const DisplayList &displays)
{
    return displays.empty() ? scaleWithoutDisplays : displays.front().scale;
}

// A view of the image's pixels that keeps them alive; painting on it makes a copy.
QImage sharedSubImage(const QImage &image, const QRect &area)
{
    if (image.depth() != 32)
        return image.copy(area);
    const uchar *first = image.constScanLine(area.y()) + qsizetype(area.x()) * 4;
    return QImage(first, area.width(), area.height(), image.bytesPerLine(), image.format(),
                  [](void *owner) { delete static_cast<QImage *>(owner); }, new QImage(image));
}

} // namespace

Error noDisplayError()
{
    return Error(QStringLiteral("No display found to capture."));
}

double backingScale(quint32 displayID, const DisplayList &displays)
{
    for (const DisplayInfo &display : displays) {
        if (display.id == displayID)
            return display.scale;
    }
    return mainDisplayScale(displays);
}

double backingScaleForWindowFrame(const QRectF &frame, const DisplayList &displays)
{
    const QPointF centre = frame.center();
    for (const DisplayInfo &display : displays) {
        // Half-open, so a centre on the seam between two displays has one owner.
        const QRect &area = display.frame;
        if (centre.x() >= area.left() && centre.x() < area.left() + area.width()
            && centre.y() >= area.top() && centre.y() < area.top() + area.height())
            return display.scale;
    }
    return mainDisplayScale(displays);
}

QImage captureDisplay(ScreenCapture &service, const DisplayInfo &display)
{
    return service.captureDisplay(display);
}

CapturedImage captureDisplayAsPng(ScreenCapture &service, const DisplayInfo &display, double scale)
{
    PngStreamEncoder encoder(scale);
    bool encoded = true;
    service.streamDisplay(display, [&](const QImage &band) { encoded = encoded && encoder.addRows(band); });
    CapturedImage captured{QImage(), scale, encoded ? encoder.finish() : QByteArray()};
    if (captured.png.isEmpty())
        throw Error(QStringLiteral("There is not enough memory to save the screen of \"%1\".").arg(display.name));
    return captured;
}

DisplaySnapshots snapshotDisplays(ScreenCapture &service, const DisplayList &displays)
{
    DisplaySnapshots snapshots;
    for (const DisplayInfo &display : displays)
        snapshots[display.id] = captureDisplay(service, display);
    if (snapshots.empty())
        throw noDisplayError();
    return snapshots;
}

QImage captureRegion(ScreenCapture &service, const DisplayInfo &display, const QRectF &rect)
{
    return service.captureRegion(display, rect);
}

CapturedImage captureWindow(ScreenCapture &service, const WindowInfo &window, bool withShadow)
{
    const double scale = backingScaleForWindowFrame(QRectF(window.frame), service.displays());
    QImage image = service.captureWindow(window, scale);
    if (withShadow) {
        if (std::optional<QImage> shadowed = compositeShadow(image, scale))
            image = std::move(*shadowed);
    }
    return {image, scale};
}

QImage crop(const QImage &displayImage, const QRectF &selection, const QRectF &screenFrame)
{
    if (displayImage.isNull() || screenFrame.isEmpty())
        return {};
    const double sx = displayImage.width() / screenFrame.width();
    const double sy = displayImage.height() / screenFrame.height();
    const QRect wanted(int(std::floor(sx * (selection.left() - screenFrame.left()))),
                       int(std::floor(sy * (selection.top() - screenFrame.top()))),
                       int(std::floor(sx * selection.width())),
                       int(std::floor(sy * selection.height())));
    if (wanted.width() < 1 || wanted.height() < 1)
        return {};
    const QRect visible = wanted.intersected(displayImage.rect());
    if (visible.isEmpty())
        return {};
    return sharedSubImage(displayImage, visible);
}

QByteArray pngData(const QImage &image, double scale)
{
    return encodePng(image, scale);
}

// A capture of the main display, encoded and thrown away: it readies exactly
// what a real one needs.
void warmUp(ScreenCapture &service)
{
    const DisplayList displays = service.displays();
    if (!displays.empty())
        captureDisplayAsPng(service, displays.front(), displays.front().scale);
}

void writePNG(const QByteArray &png, const QString &path)
{
    const auto failure = [&](const QString &reason) {
        return Error(QStringLiteral("Could not write \"%1\": %2.").arg(QFileInfo(path).fileName(), reason));
    };
    if (png.isEmpty())
        throw failure(QStringLiteral("the image could not be encoded"));
    if (const std::optional<QString> reason = writeFileAtomically(path, png))
        throw failure(*reason);
}

} // namespace pixmora::CaptureEngine
