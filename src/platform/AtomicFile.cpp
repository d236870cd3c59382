#include "platform/AtomicFile.h"

#include "platform/Logging.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSaveFile>

namespace pixmora {

namespace {

// "<path>.XXXXXX", six letters, as removeAbandonedWrites expects.
QString temporaryPathBeside(const QString &path)
{
    static constexpr char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    QString temporary = path + u'.';
    for (int i = 0; i < 6; ++i)
        temporary += QLatin1Char(letters[QRandomGenerator::global()->bounded(52)]);
    return temporary;
}

// A short write (the disk filled up during it) comes without a reason; the
// next attempt fails at once with the system's own.
std::optional<QString> writeAll(QFileDevice &file, QByteArrayView bytes)
{
    for (qsizetype written = 0; written < bytes.size();) {
        const qint64 step = file.write(bytes.data() + written, bytes.size() - written);
        if (step <= 0)
            return file.errorString();
        written += step;
    }
    return std::nullopt;
}

// Unbuffered, so that a failure shows in write() and nothing is left for a
// final flush, which may fail unseen (a small file on a full disk).
constexpr QIODevice::OpenMode unbufferedWrite = QIODevice::WriteOnly | QIODevice::Unbuffered;

enum class NewFile { written, failed, nameTaken };

// A file that does not exist yet is written beside its name and renamed into
// place, a rename that fails if the name was taken meanwhile. It is not
// synced to disk first: no older content is at stake, as GLib reasons too,
// and the sync takes longer than the whole write (some 10 ms of a capture's
// latency on these machines).
NewFile writeNewFile(const QString &path, QByteArrayView bytes,
                     std::optional<QFileDevice::Permissions> permissions, QString &reason)
{
    QFile file(temporaryPathBeside(path));
    const bool opened = permissions ? file.open(unbufferedWrite | QIODevice::NewOnly, *permissions)
                                    : file.open(unbufferedWrite | QIODevice::NewOnly);
    std::optional<QString> failure;
    if (!opened)
        failure = file.errorString();
    else if (permissions && !file.setPermissions(*permissions))  // exactly these, whatever the umask
        failure = file.errorString();
    else
        failure = writeAll(file, bytes);
    if (!failure) {
        file.close();
        if (file.rename(path))
            return NewFile::written;
        failure = file.errorString();
    }
    if (opened)
        file.remove();
    if (QFileInfo::exists(path))
        return NewFile::nameTaken;
    reason = *failure;
    return NewFile::failed;
}

} // namespace

std::optional<QString> writeFileAtomically(const QString &path, QByteArrayView bytes,
                                           std::optional<QFileDevice::Permissions> permissions)
{
    if (!QFileInfo::exists(path)) {
        QString reason;
        switch (writeNewFile(path, bytes, permissions, reason)) {
        case NewFile::written:
            return std::nullopt;
        case NewFile::failed:
            return reason;
        case NewFile::nameTaken:
            break;  // replaced below, as any file that was there
        }
    }
    // QSaveFile syncs the new content to disk before it takes the old one's place.
    QSaveFile file(path);
    if (!file.open(unbufferedWrite))
        return file.errorString();
    if (permissions && !file.setPermissions(*permissions))
        return file.errorString();
    if (std::optional<QString> reason = writeAll(file, bytes))
        return reason;
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
