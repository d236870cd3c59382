#pragma once

#include "app/InstanceLocation.h"

#include <QObject>
#include <QStringList>

#include <functional>
#include <optional>

class QLocalServer;

namespace pixmora {

class LocalSecurity;

// One Pixmora per user and display: the first start serves, later starts hand
// it their command line (InstanceClient). Only the user's own processes are
// served; anyone else is hung up on.
class InstanceServer : public QObject {
    Q_OBJECT

public:
    InstanceServer(LocalSecurity &security, InstanceLocation location, QObject *parent = nullptr);
    ~InstanceServer() override;

    struct Start {
        enum class Kind { serving, alreadyRunning, failed } kind;
        QString failure;
    };
    // Takes the lock, replaces a dead tray's socket and listens.
    Start listen();

    // Called exactly once per command, with the reason when it does not run.
    using Answer = std::function<void(const std::optional<QString> &refusal)>;
    std::function<void(const QStringList &arguments, const Answer &answer)> onCommand;

private:
    void serve();

    LocalSecurity &m_security;
    InstanceLocation m_location;
    QLocalServer *m_server;
};

} // namespace pixmora
