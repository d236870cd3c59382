#pragma once

#include <QByteArrayView>
#include <QString>

#include <optional>

namespace pixmora {

// Writes the file whole or not at all: a file already at `path` stays as it
// was until the new one is complete. Nothing on success; otherwise the
// system's reason, such as "No space left on device".
std::optional<QString> writeFileAtomically(const QString &path, QByteArrayView bytes);

} // namespace pixmora
