#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace pixmora {

struct Alert {
    QString message;      // shown bold
    QString informative;
    QStringList buttons{QStringLiteral("OK")};
};

// Every modal dialog goes through here so that tests can answer them. Each
// first brings the program to the front, ignoring other applications.
class Dialogs {
public:
    virtual ~Dialogs() = default;
    // Runs the alert modally; answers the index of the button pressed.
    virtual int runAlert(const Alert &alert) = 0;
    // A folder panel; the chosen folder, or nothing when cancelled.
    virtual std::optional<QString> chooseFolder(const QString &startFolder, const QString &message,
                                                const QString &confirmButton) = 0;
    // A save panel for a PNG file; the chosen path, or nothing when cancelled.
    virtual std::optional<QString> choosePngSaveLocation(const QString &proposedName) = 0;
};

} // namespace pixmora
