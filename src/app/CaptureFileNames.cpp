#include "app/CaptureFileNames.h"

#include <QLocale>
#include <QRegularExpression>

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

bool isCaptureFileName(const QString &name)
{
    static const QRegularExpression pattern(
        QStringLiteral(R"(^Screenshot \d{4}-\d\d-\d\d at \d\d\.\d\d\.\d\d\.\d{3}( \((?:[2-9]|[1-9][0-9]+)\))?\.png$)"));
    return pattern.match(name).hasMatch();
}

} // namespace pixmora
