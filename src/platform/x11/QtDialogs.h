#pragma once

#include "platform/Dialogs.h"

namespace pixmora {

class Desktop;

// Qt's message box and file dialogs, run modally.
class QtDialogs : public Dialogs {
public:
    explicit QtDialogs(Desktop &desktop) : m_desktop(desktop) {}

    int runAlert(const Alert &alert) override;
    std::optional<QString> chooseFolder(const QString &startFolder, const QString &message,
                                        const QString &confirmButton) override;
    std::optional<QString> choosePngSaveLocation(const QString &proposedName) override;

private:
    Desktop &m_desktop;
};

} // namespace pixmora
