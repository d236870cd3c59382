#pragma once

#include <QStringList>

#include <optional>

class QIODevice;

namespace pixmora {

// One request per connection: the command line under an id chosen by the
// command, then one answer under the same id, given once the tray knows
// whether the command runs.
struct InstanceRequest {
    quint64 id = 0;
    QStringList arguments;
};

struct InstanceAnswer {
    quint64 id = 0;
    std::optional<QString> refusal;  // why the command does not run; nothing when it runs
};

// A request larger than this is no command line of ours.
constexpr qint64 maxInstanceRequestBytes = 64 * 1024;

void writeRequest(QIODevice &device, const InstanceRequest &request);
void writeAnswer(QIODevice &device, const InstanceAnswer &answer);
// Nothing while the message is incomplete (or not ours: see maxInstanceRequestBytes).
std::optional<InstanceRequest> readRequest(QIODevice &device);
std::optional<InstanceAnswer> readAnswer(QIODevice &device);

} // namespace pixmora
