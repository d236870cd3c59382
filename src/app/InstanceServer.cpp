#include "app/InstanceServer.h"

#include "app/InstanceProtocol.h"
#include "platform/LocalSecurity.h"
#include "platform/Logging.h"

#include <QFile>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>

namespace pixmora {

InstanceServer::InstanceServer(LocalSecurity &security, InstanceLocation location, QObject *parent)
    : QObject(parent), m_security(security), m_location(std::move(location)), m_server(new QLocalServer(this))
{
    connect(m_server, &QLocalServer::newConnection, this, &InstanceServer::serve);
}

InstanceServer::~InstanceServer() = default;

InstanceServer::Start InstanceServer::listen()
{
    using Kind = Start::Kind;
    if (m_location.failure)
        return {Kind::failed, *m_location.failure};
    const LocalSecurity::Lock lock = m_security.lockForLife(m_location.lockPath);
    if (lock.failure)
        return {Kind::failed, QStringLiteral("cannot lock %1: %2").arg(m_location.lockPath, *lock.failure)};
    if (!lock.held)
        return {Kind::alreadyRunning, {}};
    if (const std::optional<QString> problem = m_location.socketProblem(m_security))
        return {Kind::failed, *problem};
    // Only a crashed tray leaves a socket behind: a live one would hold the lock.
    QFile::remove(m_location.socketPath);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_location.socketPath))
        return {Kind::failed, QStringLiteral("cannot listen on %1: %2").arg(m_location.socketPath,
                                                                            m_server->errorString())};
    return {Kind::serving, {}};
}

void InstanceServer::serve()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        const std::optional<uint> peer = m_security.peerUserId(socket->socketDescriptor());
        if (peer != m_security.userId()) {
            qCWarning(lcApp).noquote() << "Hung up on a command from another user, uid"
                                       << (peer ? QString::number(*peer) : QStringLiteral("unknown"));
            socket->abort();
            socket->deleteLater();
            continue;
        }
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            const std::optional<InstanceRequest> request = readRequest(*socket);
            if (!request) {
                if (socket->bytesAvailable() > maxInstanceRequestBytes)
                    socket->abort();
                return;  // wait for the rest
            }
            disconnect(socket, &QLocalSocket::readyRead, this, nullptr);
            const QPointer<QLocalSocket> client(socket);
            const quint64 id = request->id;
            const Answer answer = [client, id](const std::optional<QString> &refusal) {
                if (!client)
                    return;
                writeAnswer(*client, {id, refusal});
                client->flush();
            };
            if (onCommand)
                onCommand(request->arguments, answer);
            else
                answer(QStringLiteral("Pixmora is still starting"));
        });
    }
}

} // namespace pixmora
