#include "platform/x11/PosixLocalSecurity.h"

#include <QFile>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace pixmora {

namespace {

QString systemReason(int error) { return QString::fromLocal8Bit(std::strerror(error)); }

// O_NOFOLLOW: a link planted at the lock's name is refused, not followed.
int openLockFile(const QString &path, int flags)
{
    return ::open(QFile::encodeName(path).constData(), flags | O_NOFOLLOW | O_CLOEXEC, 0600);
}

} // namespace

PosixLocalSecurity::~PosixLocalSecurity()
{
    for (const int fd : m_lockFiles)
        ::close(fd);
}

uint PosixLocalSecurity::userId() { return ::geteuid(); }

LocalSecurity::FileStatus PosixLocalSecurity::status(const QString &path)
{
    struct stat info {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    FileStatus result;
    result.kind = S_ISDIR(info.st_mode)    ? FileStatus::Kind::folder
                  : S_ISSOCK(info.st_mode) ? FileStatus::Kind::socket
                                           : FileStatus::Kind::other;
    result.owner = info.st_uid;
    result.mode = int(info.st_mode & 07777);
    return result;
}

std::optional<QString> PosixLocalSecurity::makePrivateFolder(const QString &path)
{
    if (::mkdir(QFile::encodeName(path).constData(), 0700) != 0)
        return systemReason(errno);
    return std::nullopt;
}

std::optional<uint> PosixLocalSecurity::peerUserId(qintptr socketDescriptor)
{
    struct ucred credentials {};
    socklen_t size = sizeof credentials;
    if (::getsockopt(int(socketDescriptor), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return std::nullopt;
    return credentials.uid;
}

LocalSecurity::Lock PosixLocalSecurity::lockForLife(const QString &path)
{
    const int fd = openLockFile(path, O_RDWR | O_CREAT);
    if (fd < 0)
        return {false, systemReason(errno)};
    struct stat info {};
    if (::fstat(fd, &info) != 0 || info.st_uid != ::geteuid() || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return {false, QStringLiteral("%1 belongs to another user (uid %2)").arg(path).arg(info.st_uid)};
    }
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        ::close(fd);
        if (error == EWOULDBLOCK)
            return {false, std::nullopt};
        return {false, systemReason(error)};
    }
    m_lockFiles.push_back(fd);
    return {true, std::nullopt};
}

bool PosixLocalSecurity::isLocked(const QString &path)
{
    const int fd = openLockFile(path, O_RDONLY);
    if (fd < 0)
        return false;
    const bool busy = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);  // drops the shared lock, if taken
    return busy;
}

// A zombie has stopped running: whoever adopted it may be slow to reap it.
bool PosixLocalSecurity::isProcessRunning(qint64 pid)
{
    if (pid <= 0 || (::kill(pid_t(pid), 0) != 0 && errno != EPERM))
        return false;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray line = stat.readAll();
    const qsizetype state = line.lastIndexOf(") ") + 2;
    return state < 2 || state >= line.size() || line[state] != 'Z';
}

} // namespace pixmora
