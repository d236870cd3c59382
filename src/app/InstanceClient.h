#pragma once

#include "app/InstanceLocation.h"

#include <QStringList>

#include <functional>
#include <optional>

class QLocalSocket;

namespace pixmora {

class LocalSecurity;

// Hands one command line to the running Pixmora of this user and display,
// starting one when none runs, and waits for its answer however long the
// tray takes: the command is sent once and never again.
class InstanceClient {
public:
    // Starts a tray in the background; its process id, or nothing.
    using StartTray = std::function<std::optional<qint64>()>;

    InstanceClient(LocalSecurity &security, InstanceLocation location, StartTray startTray);

    struct Outcome {
        bool ran = false;
        QString reason;  // why not, when it did not run
    };
    Outcome send(const QStringList &arguments);

    // How a tray that cannot start says why, as the last line on its error output.
    static QString startFailureLine(const QString &reason);

    static constexpr int startTimeoutMs = 20000;

private:
    Outcome exchange(QLocalSocket &socket, const QStringList &arguments);
    QString reasonFromLog(qint64 from) const;

    LocalSecurity &m_security;
    InstanceLocation m_location;
    StartTray m_startTray;
};

} // namespace pixmora
