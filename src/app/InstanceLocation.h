#pragma once

#include <QString>

#include <optional>

namespace pixmora {

class LocalSecurity;

// Where the Pixmora of this user and display can be reached: its socket, the
// lock its tray holds for life and the log of a tray that a command started.
// They live in $XDG_RUNTIME_DIR when that is the user's own folder, else in a
// folder of ours in the temporary folder that only the user may enter. Names
// hold the display, never the user's name: the folder is the user's already.
struct InstanceLocation {
    QString socketPath;
    QString lockPath;
    QString logPath;
    std::optional<QString> failure;  // why there is no private place; the paths are empty then

    // runtimeFolder: $XDG_RUNTIME_DIR, empty when unset.
    static InstanceLocation find(LocalSecurity &security, const QString &runtimeFolder,
                                 const QString &temporaryFolder, const QString &display);
    // From the environment.
    static InstanceLocation forThisSession(LocalSecurity &security);

    // Why the socket's name cannot be ours: a file that is no socket, or
    // another user's socket. A socket of ours is fine, even a dead one.
    std::optional<QString> socketProblem(LocalSecurity &security) const;
};

} // namespace pixmora
