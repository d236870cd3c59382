#include "app/InstanceServer.h"

#include <QDataStream>
#include <QLocalServer>
#include <QLocalSocket>
#include <QRegularExpression>

namespace pixmora {

QString instanceSocketName()
{
    QString session = qEnvironmentVariable("USER", QStringLiteral("user")) + QLatin1Char('-')
                      + qEnvironmentVariable("DISPLAY", QStringLiteral("none"));
    session.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_.-]")), QStringLiteral("_"));
    return QStringLiteral("pixmora-") + session;
}

InstanceServer::InstanceServer(QObject *parent) : QObject(parent), m_server(new QLocalServer(this))
{
    connect(m_server, &QLocalServer::newConnection, this, &InstanceServer::serve);
}

InstanceServer::~InstanceServer() = default;

bool InstanceServer::listen()
{
    const QString name = instanceSocketName();
    if (sendToRunningInstance({}, 1000))
        return false;
    if (m_server->listen(name))
        return true;
    // A socket left behind by a crashed instance.
    QLocalServer::removeServer(name);
    return m_server->listen(name);
}

void InstanceServer::serve()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, socket, [this, socket] {
            QDataStream stream(socket);
            stream.startTransaction();
            QStringList arguments;
            stream >> arguments;
            if (!stream.commitTransaction())
                return;  // wait for the rest
            const QString reply = (arguments.isEmpty() || !onCommand) ? QString() : onCommand(arguments);
            QDataStream out(socket);
            out << reply;
            socket->flush();
        });
    }
}

std::optional<QString> sendToRunningInstance(const QStringList &arguments, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(instanceSocketName());
    if (!socket.waitForConnected(timeoutMs))
        return std::nullopt;
    QDataStream out(&socket);
    out << arguments;
    socket.flush();
    QDataStream in(&socket);
    QString reply;
    do {
        if (!socket.waitForReadyRead(timeoutMs))
            return std::nullopt;
        in.startTransaction();
        in >> reply;
    } while (!in.commitTransaction());
    return reply;
}

} // namespace pixmora
