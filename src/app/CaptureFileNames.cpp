#include "app/CaptureFileNames.h"

#include <QLocale>

namespace pixmora {

QString captureDateText(const QDateTime &moment)
{
    return QLocale::c().toString(moment.toLocalTime(), QStringLiteral("yyyy-MM-dd 'at' HH.mm.ss.zzz"));
}

QString captureFileName(const QString &dateText, int position)
{
    const QString base = QStringLiteral("Screenshot ") + dateText;
    if (position <= 1)
        return base + QStringLiteral(".png");
    return base + QStringLiteral(" (%1).png").arg(position);
}

} // namespace pixmora
