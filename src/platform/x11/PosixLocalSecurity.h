#pragma once

#include "platform/LocalSecurity.h"

#include <vector>

namespace pixmora {

// Unix users and permissions: lstat, SO_PEERCRED, flock.
class PosixLocalSecurity : public LocalSecurity {
public:
    PosixLocalSecurity() = default;
    ~PosixLocalSecurity() override;
    PosixLocalSecurity(const PosixLocalSecurity &) = delete;
    PosixLocalSecurity &operator=(const PosixLocalSecurity &) = delete;

    uint userId() override;
    FileStatus status(const QString &path) override;
    std::optional<QString> makePrivateFolder(const QString &path) override;
    std::optional<uint> peerUserId(qintptr socketDescriptor) override;
    Lock lockForLife(const QString &path) override;
    bool isLocked(const QString &path) override;
    bool isProcessRunning(qint64 pid) override;

private:
    std::vector<int> m_lockFiles;  // open while the locks last
};

} // namespace pixmora
