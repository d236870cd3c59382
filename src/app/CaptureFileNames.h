#pragma once

#include <QDateTime>
#include <QString>

namespace pixmora {

// "yyyy-MM-dd 'at' HH.mm.ss.SSS" in local time, independent of the user's locale.
QString captureDateText(const QDateTime &moment);

// "Screenshot <date text>.png" for the first image of a capture, then
// "Screenshot <date text> (N).png" for the image at position N >= 2.
QString captureFileName(const QString &dateText, int position = 1);

// True for exactly the names that captureFileName makes.
bool isCaptureFileName(const QString &name);

} // namespace pixmora
