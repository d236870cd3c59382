#include "app/AppDelegate.h"

#include <QMap>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTimer>

// Resources of a static library must be registered by name, outside any namespace.
static void registerResources() { Q_INIT_RESOURCE(resources); }

namespace pixmora {

AppDelegate::AppDelegate(Platform platform, const QString &settingsPath, std::optional<QString> historyDirectory)
    : m_platform(platform),
      m_hotKeys(platform.hotKeys),
      m_settings(settingsPath),
      m_saveLocation(m_settings, platform.bookmarks, platform.dialogs, platform.desktop),
      m_previewPresenter(platform.screens, platform.desktop)
{
    registerResources();
    if (historyDirectory)
        m_history = std::make_unique<CaptureHistoryStore>(*historyDirectory);
}

AppDelegate::~AppDelegate()
{
    delete m_regionController;
    delete m_windowPicker;
}

void AppDelegate::applicationDidFinishLaunching()
{
    if (!m_settings.didAskLaunchAtLogin()) {
        m_settings.setDidAskLaunchAtLogin(true);
        if (!m_platform.loginItem.isEnabled())
            QTimer::singleShot(0, this, &AppDelegate::askLaunchAtLogin);
    }

    m_statusItem = std::make_unique<QSystemTrayIcon>(QIcon(QStringLiteral(":/icons/camera-viewfinder.svg")));
    m_statusItem->setToolTip(QString::fromUtf8("Pixmora — Screenshots"));
    m_statusItem->setContextMenu(buildMenu());
    // A left click opens the menu too, as a menu-bar item does.
    connect(m_statusItem.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && m_menu)
            m_menu->popup(QCursor::pos());
    });
    m_statusItem->show();

    const quint32 controlShift = HotKeyCenter::controlKey | HotKeyCenter::shiftKey;
    const QPointer<AppDelegate> self(this);
    const auto registerCommand = [this, self, controlShift](quint32 keyCode, void (AppDelegate::*command)()) {
        m_hotKeys.registerHotKey(keyCode, controlShift, [self, command] {
            if (self)
                (self.data()->*command)();
        });
    };
    registerCommand(HotKeyCenter::keyCode1, &AppDelegate::startRegionCapture);
    registerCommand(HotKeyCenter::keyCode2, &AppDelegate::startWindowCapture);
    registerCommand(HotKeyCenter::keyCode3, &AppDelegate::startFullScreenCapture);
}

void AppDelegate::showAlert(const QString &message, const QString &informative)
{
    m_platform.desktop.activateApplication();
    m_platform.dialogs.runAlert({message, informative});
}

void AppDelegate::toggleClipboard() { m_settings.setCopyToClipboard(!m_settings.copyToClipboard()); }
void AppDelegate::toggleAlsoCopy() { m_settings.setAlsoCopyToClipboard(!m_settings.alsoCopyToClipboard()); }
void AppDelegate::toggleOpenAfter() { m_settings.setOpenAfterCapture(!m_settings.openAfterCapture()); }
void AppDelegate::toggleShadow() { m_settings.setWindowShadow(!m_settings.windowShadow()); }

void AppDelegate::chooseFolder() { m_saveLocation.promptForFolder(); }
void AppDelegate::revealFolder() { m_saveLocation.revealFolder(); }

void AppDelegate::askLaunchAtLogin()
{
    m_platform.desktop.activateApplication();
    const int answer = m_platform.dialogs.runAlert(
        {QStringLiteral("Launch Pixmora at Login?"),
         QStringLiteral("Pixmora can start automatically when you log in, so the capture shortcuts are "
                        "always ready. You can change this anytime from the menu."),
         {QStringLiteral("Launch at Login"), QStringLiteral("Not Now")}});
    if (answer == 0)
        m_platform.loginItem.enable();  // a failure here is not worth a second question
}

void AppDelegate::toggleLaunchAtLogin()
{
    LoginItem &item = m_platform.loginItem;
    const std::optional<QString> failure = item.isEnabled() ? item.disable() : item.enable();
    if (failure)
        showAlert(QStringLiteral("Could Not Change Launch at Login"), *failure);
}

void AppDelegate::showAbout()
{
    showAlert(QStringLiteral("Pixmora 2.1"), QStringLiteral("Built on Qt and the X Window System."));
}

void AppDelegate::showInstructions()
{
    const QStringList lines{
        QStringLiteral("Global shortcuts:"),
        QString::fromUtf8("Ctrl+Shift+1 — capture an area (drag with the mouse)"),
        QString::fromUtf8("Ctrl+Shift+2 — capture a window (click the window)"),
        QString::fromUtf8("Ctrl+Shift+3 — capture the full screen"),
        QString::fromUtf8("Ctrl+Shift+4 — scrolling capture (select just the visible"),
        QStringLiteral("part, release, then scroll through the content"),
        QString::fromUtf8("with the mouse wheel and click Done — you get"),
        QString::fromUtf8("one tall image; Ctrl+Shift+4 again also finishes it)"),
        QString(),
        QStringLiteral("While selecting: Esc cancels the capture."),
    };
    showAlert(QStringLiteral("Instructions"), lines.join(QLatin1Char('\n')));
}

QString AppDelegate::runRemoteCommand(const QStringList &arguments)
{
    static const QMap<QString, void (AppDelegate::*)()> captures{
        {QStringLiteral("area"), &AppDelegate::startRegionCapture},
        {QStringLiteral("window"), &AppDelegate::startWindowCapture},
        {QStringLiteral("screen"), &AppDelegate::startFullScreenCapture},
    };
    if (arguments.size() == 2 && arguments[0] == QLatin1String("capture") && captures.contains(arguments[1])) {
        QTimer::singleShot(0, this, captures.value(arguments[1]));
        return {};
    }
    return QStringLiteral("unknown command: %1").arg(arguments.join(QLatin1Char(' ')));
}

} // namespace pixmora
