#pragma once

#include "platform/Dialogs.h"

namespace pixmora {

// Qt's message box and file dialogs, run modally.
class QtDialogs : public Dialogs {
public:
    int runAlert(const Alert &alert) override;
    std::optional<QString> chooseFolder(const QString &startFolder, const QString &message,
                                        const QString &confirmButton) override;
    std::optional<QString> choosePngSaveLocation(const QString &proposedName) override;
};

} // namespace pixmora
