#include "ScrollDocument.h"

#include "VirtualDesktop.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

namespace pixmora::e2e {

std::optional<ScrollDocument> ScrollDocument::start(VirtualDesktop &desktop, const QString &program,
                                                    const QString &folder, const QStringList &arguments)
{
    const QString reportPath = QDir(folder).filePath(QStringLiteral("viewport.txt"));
    QFile::remove(reportPath);
    desktop.start(program, QStringList{QStringLiteral("--report"), reportPath} + arguments);
    QFile report(reportPath);
    if (!VirtualDesktop::waitUntil([&] { return report.exists() && report.size() > 0; }, 15000)
        || !report.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QList<QByteArray> numbers = report.readAll().simplified().split(' ');
    if (numbers.size() != 4)
        return std::nullopt;
    return ScrollDocument{QRect(numbers[0].toInt(), numbers[1].toInt(), numbers[2].toInt(), numbers[3].toInt())};
}

std::optional<ScrollDocument> ScrollDocument::startForBenchmark(VirtualDesktop &desktop, const QString &folder)
{
    return start(desktop, QCoreApplication::applicationDirPath() + QStringLiteral("/../tests/pixmora_scroll_document"),
                 folder,
                 {QStringLiteral("--width"), QStringLiteral("1700"), QStringLiteral("--repeat"), QStringLiteral("8"),
                  QStringLiteral("-geometry"), QStringLiteral("1720x1400+40+40")});
}

} // namespace pixmora::e2e
