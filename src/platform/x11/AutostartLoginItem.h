#pragma once

#include "platform/LoginItem.h"

namespace pixmora {

// Launch at login through an XDG autostart entry, pixmora.desktop, which
// desktop sessions start when the user logs in. When the package's desktop
// entry starts this very binary, the autostart entry is a copy of it, so the
// session shows the installed name and icon.
class AutostartLoginItem : public LoginItem {
public:
    // $XDG_CONFIG_HOME/autostart and the installed entry, looked up at each use.
    AutostartLoginItem() = default;
    explicit AutostartLoginItem(QString autostartFolder, QString installedEntry = {});

    bool isEnabled() override;
    std::optional<QString> enable() override;
    std::optional<QString> disable() override;

private:
    QString autostartFolder() const;
    QString entryPath() const;
    QByteArray entryText() const;

    QString m_autostartFolder;
    QString m_installedEntry;
};

} // namespace pixmora
