#include "platform/AtomicFile.h"

#include <QSaveFile>

namespace pixmora {

std::optional<QString> writeFileAtomically(const QString &path, QByteArrayView bytes)
{
    QSaveFile file(path);
    // Unbuffered, so that nothing is left for commit() to flush: it reports
    // success when that final flush fails (a small file on a full disk).
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
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

} // namespace pixmora
