#pragma once

#include <QByteArrayView>
#include <QFileDevice>
#include <QString>

#include <functional>
#include <optional>

namespace pixmora {

// Writes the file whole or not at all: a file already at `path` stays as it
// was until the new one is complete and synced to disk (a file that did not
// exist is not synced: it shows at once). Nothing on success; otherwise the
// system's reason, such as "No space left on device". Without permissions a
// new file gets the user's default (the umask's) and a replaced one keeps its
// own; with them, the file has exactly those from before its first byte.
std::optional<QString> writeFileAtomically(const QString &path, QByteArrayView bytes,
                                           std::optional<QFileDevice::Permissions> permissions = std::nullopt);

// Where the file system cannot write a file without a name, a write in
// progress is "<name>.XXXXXX" (six letters) beside its file, and a write cut
// short by a crash leaves it there. Removes those in the folder whose name
// isOurs accepts and that nothing has touched for a minute (another instance
// may be writing right now).
void removeAbandonedWrites(const QString &folder, const std::function<bool(const QString &name)> &isOurs);

} // namespace pixmora
