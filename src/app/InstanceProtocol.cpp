#include "app/InstanceProtocol.h"

#include <QDataStream>

namespace pixmora {

namespace {

constexpr quint32 requestMagic = 0x504d5852;  // "PMXR"
constexpr quint32 answerMagic = 0x504d5841;   // "PMXA"

// Both ends are the same program; the version is fixed all the same.
constexpr int streamVersion = QDataStream::Qt_6_4;

} // namespace

void writeRequest(QIODevice &device, const InstanceRequest &request)
{
    QDataStream out(&device);
    out.setVersion(streamVersion);
    out << requestMagic << request.id << request.arguments;
}

void writeAnswer(QIODevice &device, const InstanceAnswer &answer)
{
    QDataStream out(&device);
    out.setVersion(streamVersion);
    out << answerMagic << answer.id << answer.refusal.has_value() << answer.refusal.value_or(QString());
}

std::optional<InstanceRequest> readRequest(QIODevice &device)
{
    QDataStream in(&device);
    in.setVersion(streamVersion);
    in.startTransaction();
    quint32 magic = 0;
    InstanceRequest request;
    in >> magic >> request.id >> request.arguments;
    if (!in.commitTransaction() || magic != requestMagic)
        return std::nullopt;
    return request;
}

std::optional<InstanceAnswer> readAnswer(QIODevice &device)
{
    QDataStream in(&device);
    in.setVersion(streamVersion);
    in.startTransaction();
    quint32 magic = 0;
    InstanceAnswer answer;
    bool refused = false;
    QString reason;
    in >> magic >> answer.id >> refused >> reason;
    if (!in.commitTransaction() || magic != answerMagic)
        return std::nullopt;
    if (refused)
        answer.refusal = reason;
    return answer;
}

} // namespace pixmora
