#include "app/AppDelegate.h"

#include <QApplication>
#include <QFileInfo>
#include <QMenu>

namespace pixmora {

QMenu *AppDelegate::buildMenu()
{
    m_menu = std::make_unique<QMenu>();
    QMenu *menu = m_menu.get();
    const auto add = [this, menu](const QString &title, void (AppDelegate::*action)(), bool checkable = false) {
        QAction *item = menu->addAction(title, this, action);
        item->setCheckable(checkable);
        return item;
    };

    add(QStringLiteral("Capture Area"), &AppDelegate::startRegionCapture)
        ->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+1")));
    add(QStringLiteral("Capture Window"), &AppDelegate::startWindowCapture)
        ->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+2")));
    add(QStringLiteral("Capture Full Screen"), &AppDelegate::captureFullScreenFromMenu)
        ->setShortcut(QKeySequence(QStringLiteral("Ctrl+Shift+3")));
    add(QStringLiteral("Full Screen After 5 Seconds"), &AppDelegate::captureFullScreenDelayed);
    menu->addSeparator();
    m_clipboardItem = add(QStringLiteral("Clipboard Only (No File)"), &AppDelegate::toggleClipboard, true);
    m_alsoCopyItem = add(QStringLiteral("Also Copy to Clipboard (Ctrl+V)"), &AppDelegate::toggleAlsoCopy, true);
    m_openAfterItem = add(QStringLiteral("Open After Saving"), &AppDelegate::toggleOpenAfter, true);
    m_shadowItem = add(QStringLiteral("Shadow on Window Captures"), &AppDelegate::toggleShadow, true);
    menu->addSeparator();
    m_folderItem = add(QString::fromUtf8("Save To…"), &AppDelegate::chooseFolder);
    add(QStringLiteral("Show Captures Folder in File Manager"), &AppDelegate::revealFolder);
    menu->addSeparator();
    m_loginItem = add(QStringLiteral("Launch at Login"), &AppDelegate::toggleLaunchAtLogin, true);
    add(QStringLiteral("Instructions"), &AppDelegate::showInstructions);
    add(QStringLiteral("About Pixmora"), &AppDelegate::showAbout);
    menu->addSeparator();
    QAction *quit = menu->addAction(QStringLiteral("Quit Pixmora"), qApp, &QApplication::quit);
    quit->setShortcut(QKeySequence(QStringLiteral("Ctrl+Q")));

    connect(menu, &QMenu::aboutToShow, this, &AppDelegate::menuNeedsUpdate);
    return menu;
}

void AppDelegate::menuNeedsUpdate()
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
    m_folderItem->setText(QString::fromUtf8("Save To: %1…").arg(QString(folderName).replace(QLatin1Char('&'), QStringLiteral("&&"))));
    m_loginItem->setChecked(m_platform.loginItem.isEnabled());
}

} // namespace pixmora
