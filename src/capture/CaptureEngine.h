#pragma once

#include "capture/DisplaySnapshots.h"
#include "image/CapturedImage.h"
#include "platform/Displays.h"
#include "platform/Error.h"

#include <QByteArray>
#include <QImage>
#include <QRectF>


namespace pixmora {

class ScreenCapture;

// Where pixels come from and how images leave the program as PNG. Stateless,
// apart from the PNG encoder's reusable buffers (image/PngEncoder.h).
// All rectangles are in Qt's global logical coordinates (points, y down);
// images are in device pixels.
namespace CaptureEngine {

// The error of a capture that found no display.
Error noDisplayError();

// Scale of the display with that id; else the main (first) display's; else 2.0.
double backingScale(quint32 displayID, const DisplayList &displays);
// Scale of the first display containing the frame's centre (a display owns
// its left and top edges, not its right and bottom ones); else as above.
double backingScaleForWindowFrame(const QRectF &frame, const DisplayList &displays);

QImage captureDisplay(ScreenCapture &service, const DisplayInfo &display);
// The display as PNG bytes, encoded band by band while it is read
// (`png` set, `image` null): its pixels never sit in memory whole, and no
// fresh image-sized memory, slow to touch first here, stands between the
// key and the files. Throws Error.
CapturedImage captureDisplayAsPng(ScreenCapture &service, const DisplayInfo &display, double scale);
// Every display captured once, before an overlay covers them. Throws the
// first capture's failure, or noDisplayError() when there is no display.
DisplaySnapshots snapshotDisplays(ScreenCapture &service, const DisplayList &displays);
QImage captureRegion(ScreenCapture &service, const DisplayInfo &display, const QRectF &rect);
// The window at the scale of the display under its centre, with the
// program's own drop shadow when asked (the plain image if shadowing fails).
CapturedImage captureWindow(ScreenCapture &service, const WindowInfo &window, bool withShadow);

// Cuts a selection made on screenFrame out of that screen's frozen image,
// clipped to the image; the result shares the image's pixels. Null when the
// selection covers no whole pixel or lies outside the image.
QImage crop(const QImage &displayImage, const QRectF &selection, const QRectF &screenFrame);

// PNG bytes with a resolution of 72 * scale dots per inch; empty on failure.
// Any thread may call it.
QByteArray pngData(const QImage &image, double scale);
// Run once at idle after start, so that the first capture is as quick as the
// ones after it: the service's set-up (shared memory with the display
// server), the encoder's state, buffers and threads, code paged in. Keeps
// what any capture keeps, a few MB. Throws Error.
void warmUp(ScreenCapture &service);
// Writes PNG bytes atomically: a failure never leaves a partial file under
// the final name. Throws Error naming the file and the reason, also for
// empty bytes (a failed encoding).
void writePNG(const QByteArray &png, const QString &path);

} // namespace CaptureEngine
} // namespace pixmora
