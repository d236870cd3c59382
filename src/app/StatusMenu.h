#pragma once

#include <QPointer>

#include <functional>
#include <memory>

class QAction;
class QMenu;

namespace pixmora {

class LoginItem;
class SaveLocationStore;
class Settings;

// The tray icon's menu. Built once; its check marks, enabled states and the
// save folder's name are read afresh each time it is about to open. The
// toggles are its own; every other command is handed to the controller.
class StatusMenu {
public:
    struct Commands {
        std::function<void()> captureRegionFromMenu, captureWindowFromMenu, captureFullScreenFromMenu,
            captureScrollingFromMenu, captureFullScreenDelayed, chooseFolder, revealFolder, toggleLaunchAtLogin,
            showInstructions, showAbout;
        std::function<void()> showHistory;
    };

    StatusMenu(Settings &settings, SaveLocationStore &saveLocation, LoginItem &loginItem, Commands commands);
    ~StatusMenu();
    StatusMenu(const StatusMenu &) = delete;
    StatusMenu &operator=(const StatusMenu &) = delete;

    QMenu *menu() const { return m_menu.get(); }
    void menuNeedsUpdate();

    void toggleClipboard();
    void toggleAlsoCopy();
    void toggleOpenAfter();
    void toggleShadow();

private:
    void buildMenu();

    Settings &m_settings;
    SaveLocationStore &m_saveLocation;
    LoginItem &m_launchAtLogin;
    const Commands m_commands;
    std::unique_ptr<QMenu> m_menu;
    QPointer<QAction> m_clipboardItem, m_alsoCopyItem, m_openAfterItem, m_shadowItem, m_folderItem, m_loginItem;
};

} // namespace pixmora
