#include "app/StatusMenu.h"

#include "app/SaveLocationStore.h"
#include "app/Settings.h"
#include "platform/LoginItem.h"

#include <QApplication>
#include <QFileInfo>
#include <QMenu>

namespace pixmora {

StatusMenu::StatusMenu(Settings &settings, SaveLocationStore &saveLocation, LoginItem &loginItem, Commands commands)
    : m_settings(settings),
      m_saveLocation(saveLocation),
      m_launchAtLogin(loginItem),
      m_commands(std::move(commands)),
      m_menu(std::make_unique<QMenu>())
{
    buildMenu();
}

StatusMenu::~StatusMenu() = default;

void StatusMenu::buildMenu()
{
    QMenu *menu = m_menu.get();
    const auto add = [menu](const QString &title, std::function<void()> action, bool checkable = false) {
        QAction *item = menu->addAction(title);
        QObject::connect(item, &QAction::triggered, menu, [action] {
            if (action)
                action();
        });
        item->setCheckable(checkable);
        return item;
    };
    const auto toggle = [this](void (StatusMenu::*flip)()) { return [this, flip] { (this->*flip)(); }; };

    add(QStringLiteral("Capture Area"), m_commands.captureRegionFromMenu)
        ->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+1")));
    add(QStringLiteral("Capture Window"), m_commands.captureWindowFromMenu)
        ->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+2")));
    add(QStringLiteral("Capture Full Screen"), m_commands.captureFullScreenFromMenu)
        ->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+3")));
    add(QStringLiteral("Capture Scrolling"), m_commands.captureScrollingFromMenu)
        ->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+4")));
    add(QStringLiteral("Full Screen After 5 Seconds"), m_commands.captureFullScreenDelayed);
    menu->addSeparator();
    m_clipboardItem = add(QStringLiteral("Clipboard Only (No File)"), toggle(&StatusMenu::toggleClipboard), true);
    m_alsoCopyItem = add(QStringLiteral("Also Copy to Clipboard (Ctrl+V)"), toggle(&StatusMenu::toggleAlsoCopy), true);
    m_openAfterItem = add(QStringLiteral("Open After Saving"), toggle(&StatusMenu::toggleOpenAfter), true);
    m_shadowItem = add(QStringLiteral("Shadow on Window Captures"), toggle(&StatusMenu::toggleShadow), true);
    menu->addSeparator();
    m_folderItem = add(QString::fromUtf8("Save To…"), m_commands.chooseFolder);
    add(QStringLiteral("Show Captures Folder in File Manager"), m_commands.revealFolder);
    add(QString::fromUtf8("Recent Captures…"), m_commands.showHistory);
    menu->addSeparator();
    m_loginItem = add(QStringLiteral("Launch at Login"), m_commands.toggleLaunchAtLogin, true);
    add(QStringLiteral("Instructions"), m_commands.showInstructions);
    add(QStringLiteral("About Pixmora"), m_commands.showAbout);
    menu->addSeparator();
    QAction *quit = menu->addAction(QStringLiteral("Quit Pixmora"), qApp, &QApplication::quit);
    quit->setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));

    QObject::connect(menu, &QMenu::aboutToShow, menu, [this] { menuNeedsUpdate(); });
}

void StatusMenu::menuNeedsUpdate()
{
    const bool clipboardOnly = m_settings.copyToClipboard();
    m_clipboardItem->setChecked(clipboardOnly);
    m_alsoCopyItem->setChecked(m_settings.alsoCopyToClipboard());
    m_alsoCopyItem->setEnabled(!clipboardOnly);
    m_openAfterItem->setChecked(m_settings.openAfterCapture());
    m_openAfterItem->setEnabled(!clipboardOnly);
    m_shadowItem->setChecked(m_settings.windowShadow());
    const std::optional<QString> folder = m_saveLocation.currentFolder();
    const QString folderName = folder ? QFileInfo(*folder).fileName() : QStringLiteral("not set");
    // A literal '&' in a folder name must not become a mnemonic.
    m_folderItem->setText(
        QString::fromUtf8("Save To: %1…").arg(QString(folderName).replace(QLatin1Char('&'), QStringLiteral("&&"))));
    m_loginItem->setChecked(m_launchAtLogin.isEnabled());
}

void StatusMenu::toggleClipboard() { m_settings.setCopyToClipboard(!m_settings.copyToClipboard()); }
void StatusMenu::toggleAlsoCopy() { m_settings.setAlsoCopyToClipboard(!m_settings.alsoCopyToClipboard()); }
void StatusMenu::toggleOpenAfter() { m_settings.setOpenAfterCapture(!m_settings.openAfterCapture()); }
void StatusMenu::toggleShadow() { m_settings.setWindowShadow(!m_settings.windowShadow()); }

} // namespace pixmora
