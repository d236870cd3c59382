#pragma once

#include "platform/LoginItem.h"

namespace pixmora {

// Launch at login through an XDG autostart entry, pixmora.desktop, which
// desktop sessions start when the user logs in.
class AutostartLoginItem : public LoginItem {
public:
    // $XDG_CONFIG_HOME/autostart, looked up at each use.
    AutostartLoginItem() = default;
    explicit AutostartLoginItem(QString autostartFolder);

    bool isEnabled() override;
    std::optional<QString> enable() override;
    std::optional<QString> disable() override;

private:
    QString autostartFolder() const;
    QString entryPath() const;

    QString m_autostartFolder;
};

} // namespace pixmora
