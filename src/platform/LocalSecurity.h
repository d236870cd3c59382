#pragma once

#include <QString>

#include <optional>

namespace pixmora {

// Who the program runs as, who owns a file, who is at the other end of a
// local socket: the checks that keep other users of the machine from driving
// Pixmora or reading what it keeps.
class LocalSecurity {
public:
    struct FileStatus {
        enum class Kind { missing, folder, socket, other };  // a symbolic link is other
        Kind kind = Kind::missing;
        uint owner = 0;
        int mode = 0;  // permission bits, such as 0700
    };
    // The outcome of taking a lock: held, busy (another process holds it), or why it could not be tried.
    struct Lock {
        bool held = false;
        std::optional<QString> failure;
    };

    virtual ~LocalSecurity() = default;

    virtual uint userId() = 0;
    // The file itself, never what a link points to.
    virtual FileStatus status(const QString &path) = 0;
    // Makes one folder that only its owner may enter; nothing on success, else the system's reason.
    virtual std::optional<QString> makePrivateFolder(const QString &path) = 0;
    // The user at the other end of a connected local socket, nothing when the system does not say.
    virtual std::optional<uint> peerUserId(qintptr socketDescriptor) = 0;
    // An exclusive lock on a file of ours (made when missing) that lasts as
    // long as this process, so that the system drops it when the process dies.
    virtual Lock lockForLife(const QString &path) = 0;
    // True when some process holds that lock.
    virtual bool isLocked(const QString &path) = 0;
    virtual bool isProcessRunning(qint64 pid) = 0;
};

} // namespace pixmora
