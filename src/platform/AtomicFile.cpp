#include "platform/AtomicFile.h"

#include "platform/Logging.h"

#include <QDateTime>
#include <QDir>
#include <QRegularExpression>
#include <QSaveFile>

namespace pixmora {

std::optional<QString> writeFileAtomically(const QString &path, QByteArrayView bytes,
                                           std::optional<QFileDevice::Permissions> permissions)
{
    QSaveFile file(path);
    // Unbuffered, so that nothing is left for commit() to flush: it reports
    // success when that final flush fails (a small file on a full disk).
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return file.errorString();
    if (permissions && !file.setPermissions(*permissions))
        return file.errorString();
    // A short write (the disk filled up during it) comes without a reason;
    // the next attempt fails at once with the system's own.
    for (qsizetype written = 0; written < bytes.size();) {
        const qint64 step = file.write(bytes.data() + written, bytes.size() - written);
        if (step <= 0)
            return file.errorString();
        written += step;
    }
    if (!file.commit())
        return file.errorString();
    return std::nullopt;
}

void removeAbandonedWrites(const QString &folder, const std::function<bool(const QString &name)> &isOurs)
{
    static const QRegularExpression temporaryName(QStringLiteral("^(.+)\\.[A-Za-z]{6}$"));
    const QDateTime settled = QDateTime::currentDateTimeUtc().addSecs(-60);
    const QFileInfoList files = QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QFileInfo &file : files) {
        const QRegularExpressionMatch match = temporaryName.match(file.fileName());
        if (!match.hasMatch() || !isOurs(match.captured(1)) || file.lastModified().toUTC() > settled)
            continue;
        QFile leftover(file.filePath());
        if (!leftover.remove())
            qCWarning(lcPlatform).noquote() << "Could not remove an unfinished write:" << file.filePath()
                                            << leftover.errorString();
    }
}

} // namespace pixmora
