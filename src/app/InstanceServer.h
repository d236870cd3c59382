#pragma once

#include <QObject>
#include <QStringList>

#include <functional>
#include <optional>

class QLocalServer;

namespace pixmora {

// One Pixmora per user and display: the first start serves, later starts hand
// it their command line over a local socket and exit.
class InstanceServer : public QObject {
    Q_OBJECT

public:
    explicit InstanceServer(QObject *parent = nullptr);
    ~InstanceServer() override;

    // False when another instance already serves this session.
    bool listen();

    // Runs a forwarded command line; answers an empty text on success, else the reason.
    std::function<QString(const QStringList &)> onCommand;

private:
    void serve();
    QLocalServer *m_server;
};

QString instanceSocketName();

// The running instance's answer, or nothing when no instance answers in time.
std::optional<QString> sendToRunningInstance(const QStringList &arguments, int timeoutMs = 3000);

} // namespace pixmora
