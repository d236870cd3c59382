#include "app/InstanceClient.h"

#include "app/InstanceProtocol.h"
#include "platform/LocalSecurity.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QThread>

namespace pixmora {

namespace {

const QString startFailurePrefix = QStringLiteral("pixmora: Pixmora cannot start: ");

InstanceClient::Outcome cannotStart(const QString &reason)
{
    return {false, QStringLiteral("Pixmora is not running and cannot start: ") + reason};
}

} // namespace

InstanceClient::InstanceClient(LocalSecurity &security, InstanceLocation location, StartTray startTray)
    : m_security(security), m_location(std::move(location)), m_startTray(std::move(startTray))
{
}

QString InstanceClient::startFailureLine(const QString &reason) { return startFailurePrefix + reason; }

// A tray that is merely slow holds its lock, so no second one is started; a
// tray that we started and that died without listening tells why in its log.
InstanceClient::Outcome InstanceClient::send(const QStringList &arguments)
{
    if (m_location.failure)
        return cannotStart(*m_location.failure);
    const QDeadlineTimer deadline(startTimeoutMs);
    std::optional<qint64> started;
    qint64 logStart = 0;
    while (true) {
        if (const std::optional<QString> problem = m_location.socketProblem(m_security))
            return cannotStart(*problem);
        if (m_security.status(m_location.socketPath).kind == LocalSecurity::FileStatus::Kind::socket) {
            QLocalSocket socket;
            socket.connectToServer(m_location.socketPath);
            if (socket.waitForConnected(1000))
                return exchange(socket, arguments);
        }
        const bool trayAlive = m_security.isLocked(m_location.lockPath);
        if (!started && !trayAlive) {
            logStart = QFileInfo(m_location.logPath).size();
            started = m_startTray();
            if (!started)
                return cannotStart(QStringLiteral("the program could not be run"));
        } else if (started && !trayAlive && !m_security.isProcessRunning(*started)) {
            return cannotStart(reasonFromLog(logStart));
        }
        if (deadline.hasExpired())
            return cannotStart(QStringLiteral("it did not open %1 within %2 seconds")
                                   .arg(m_location.socketPath).arg(startTimeoutMs / 1000));
        QThread::msleep(20);
    }
}

InstanceClient::Outcome InstanceClient::exchange(QLocalSocket &socket, const QStringList &arguments)
{
    const std::optional<uint> peer = m_security.peerUserId(socket.socketDescriptor());
    if (peer != m_security.userId())
        return cannotStart(QStringLiteral("%1 is served by another user (uid %2)")
                               .arg(m_location.socketPath, peer ? QString::number(*peer) : QStringLiteral("unknown")));
    const quint64 id = QRandomGenerator::system()->generate64();
    writeRequest(socket, {id, arguments});
    socket.flush();
    std::optional<InstanceAnswer> answer;
    while (!(answer = readAnswer(socket))) {
        if (!socket.waitForReadyRead(-1))
            return {false, QStringLiteral("Pixmora quit before it answered")};
    }
    if (answer->id != id)
        return {false, QStringLiteral("Pixmora answered another command")};
    if (answer->refusal)
        return {false, *answer->refusal};
    return {true, {}};
}

QString InstanceClient::reasonFromLog(qint64 from) const
{
    QFile log(m_location.logPath);
    if (log.open(QIODevice::ReadOnly) && log.seek(from)) {
        const QList<QByteArray> lines = log.read(64 * 1024).split('\n');
        for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
            const QString text = QString::fromLocal8Bit(*line);
            if (text.startsWith(startFailurePrefix))
                return text.mid(startFailurePrefix.size());
        }
    }
    return QStringLiteral("it stopped at once (see %1)").arg(m_location.logPath);
}

} // namespace pixmora
