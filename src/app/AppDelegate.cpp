#include "app/AppDelegate.h"

#include "app/CaptureFileNames.h"
#include "capture/AreaCaptureFlow.h"
#include "capture/FullScreenCaptureFlow.h"
#include "capture/WindowCaptureFlow.h"
#include "platform/AtomicFile.h"
#include "platform/Logging.h"

#include <QCursor>
#include <QMap>
#include <QMenu>
#include <QPointer>
#include <QSystemTrayIcon>
#include <QTimer>

// Resources of a static library must be registered by name, outside any namespace.
static void registerResources() { Q_INIT_RESOURCE(resources); }

namespace pixmora {

AppDelegate::AppDelegate(Platform platform, const QString &settingsPath, std::optional<QString> historyDirectory)
    : m_platform(platform),
      m_hotKeys(platform.hotKeys),
      m_settings(settingsPath),
      m_saveLocation(m_settings, platform.bookmarks, &platform.dialogs),
      m_previewPresenter(platform.screens, platform.desktop),
      m_history(historyDirectory ? std::make_unique<CaptureHistoryStore>(*historyDirectory) : nullptr),
      m_delivery(m_settings, m_saveLocation, m_history.get(), platform)
{
    registerResources();
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    m_settings.secure();
    if (m_history)
        m_history->secure();
    if (const std::optional<QString> folder = m_saveLocation.currentFolder())
        removeAbandonedWrites(*folder, isCaptureFileName);

    if (!m_settings.didAskLaunchAtLogin()) {
        m_settings.setDidAskLaunchAtLogin(true);
        if (!m_platform.loginItem.isEnabled())
            QTimer::singleShot(0, this, &AppDelegate::askLaunchAtLogin);
    }

    const auto command = [self = QPointer<AppDelegate>(this)](void (AppDelegate::*run)()) {
        return [self, run] {
            if (self)
                (self.data()->*run)();
        };
    };
    m_statusMenu = std::make_unique<StatusMenu>(
        m_settings, m_saveLocation, m_platform.loginItem,
        StatusMenu::Commands{command(&AppDelegate::startRegionCapture), command(&AppDelegate::startWindowCapture),
                             command(&AppDelegate::captureFullScreenFromMenu),
                             command(&AppDelegate::captureFullScreenDelayed), command(&AppDelegate::chooseFolder),
                             command(&AppDelegate::revealFolder), command(&AppDelegate::toggleLaunchAtLogin),
                             command(&AppDelegate::showInstructions), command(&AppDelegate::showAbout)});
    m_statusItem = std::make_unique<QSystemTrayIcon>(QIcon(QStringLiteral(":/icons/camera-viewfinder.svg")));
    m_statusItem->setToolTip(QString::fromUtf8("Pixmora — Screenshots"));
    m_statusItem->setContextMenu(m_statusMenu->menu());
    // A left click opens the menu too, as a menu-bar item does.
    connect(m_statusItem.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            m_statusMenu->menu()->popup(QCursor::pos());
    });
    m_statusItem->show();

    const quint32 controlShift = HotKeyCenter::controlKey | HotKeyCenter::shiftKey;
    m_hotKeys.registerHotKey(HotKeyCenter::keyCode1, controlShift, command(&AppDelegate::startRegionCapture));
    m_hotKeys.registerHotKey(HotKeyCenter::keyCode2, controlShift, command(&AppDelegate::startWindowCapture));
    m_hotKeys.registerHotKey(HotKeyCenter::keyCode3, controlShift, command(&AppDelegate::startFullScreenCapture));
}

// --- Capture flows ---

bool AppDelegate::beginCaptureFlow()
{
    if (m_captureFlowActive)
        return false;
    m_captureFlowActive = true;
    m_previewPresenter.dismiss(false);
    return true;
}

void AppDelegate::runCaptureFlow(std::unique_ptr<CaptureFlow> flow)
{
    m_captureFlow = std::move(flow);
    // The flow is ours: it cannot call back once we are gone.
    m_captureFlow->start([this](CaptureOutcome outcome) {
        m_captureFlow.release()->deleteLater();
        finishCaptureFlow(outcome);
    });
}

// The guard stays up while an alert of the flow is open, so that a command
// given meanwhile is dropped, whatever the mode.
void AppDelegate::finishCaptureFlow(const CaptureOutcome &outcome)
{
    if (!outcome.images.isEmpty())
        deliver(outcome.images);
    else if (outcome.error)
        showCaptureError(*outcome.error);
    m_captureFlowActive = false;
}

std::unique_ptr<CaptureFlow> AppDelegate::newCaptureFlow(CaptureMode mode)
{
    switch (mode) {
    case CaptureMode::area:
        return std::make_unique<AreaCaptureFlow>(m_platform.screens, m_platform.desktop);
    case CaptureMode::window:
        return std::make_unique<WindowCaptureFlow>(m_platform.screens, m_platform.desktop, m_settings.windowShadow());
    case CaptureMode::fullScreen:
        break;
    }
    return std::make_unique<FullScreenCaptureFlow>(m_platform.screens);
}

void AppDelegate::startCapture(CaptureMode mode)
{
    if (beginCaptureFlow())
        runCaptureFlow(newCaptureFlow(mode));
}

void AppDelegate::startRegionCapture() { startCapture(CaptureMode::area); }
void AppDelegate::startWindowCapture() { startCapture(CaptureMode::window); }
void AppDelegate::startFullScreenCapture() { startCapture(CaptureMode::fullScreen); }

void AppDelegate::captureFullScreenFromMenu()
{
    QTimer::singleShot(fullScreenMenuDelayMs, this, &AppDelegate::startFullScreenCapture);
}

void AppDelegate::captureFullScreenDelayed()
{
    QTimer::singleShot(fullScreenDelayedMs, this, &AppDelegate::startFullScreenCapture);
}

void AppDelegate::showCaptureError(const Error &error)
{
    showAlert(QStringLiteral("Could Not Capture the Screen"), error.description());
}

// --- Delivery ---

void AppDelegate::deliver(const QList<CapturedImage> &images)
{
    if (images.isEmpty())
        return;
    const CaptureDelivery::Delivered delivered = m_delivery.deliver(images);
    const QPointer<AppDelegate> self(this);
    m_previewPresenter.show(images.first().image, images.first().scale, [self, delivered] {
        if (self)
            self->openCapture(delivered);
    });
}

// Until the markup editor exists, a click on the thumbnail shows the capture
// in the user's image viewer: the saved file, else the history copy.
void AppDelegate::openCapture(const CaptureDelivery::Delivered &delivered)
{
    if (!delivered.savedPaths.isEmpty())
        m_platform.desktop.openFile(delivered.savedPaths.first());
    else if (delivered.historyPath)
        m_platform.desktop.openFile(*delivered.historyPath);
}

// --- Menu commands and dialogs ---

void AppDelegate::showAlert(const QString &message, const QString &informative)
{
    m_platform.dialogs.runAlert({message, informative});
}

void AppDelegate::chooseFolder() { m_saveLocation.promptForFolder(); }

void AppDelegate::revealFolder()
{
    if (!m_saveLocation.currentFolder() && !m_saveLocation.promptForFolder())
        return;
    if (const std::optional<QString> folder = m_saveLocation.currentFolder()) {
        m_platform.desktop.revealInFileManager(*folder);
        return;
    }
    showAlert(QStringLiteral("Could Not Access the Save Folder"),
              QString::fromUtf8("Use \"Save To…\" to choose the folder again."));
}

void AppDelegate::askLaunchAtLogin()
{
    const int answer = m_platform.dialogs.runAlert(
        {QStringLiteral("Launch Pixmora at Login?"),
         QStringLiteral("Pixmora can start automatically when you log in, so the capture shortcuts are "
                        "always ready. You can change this anytime from the menu."),
         {QStringLiteral("Launch at Login"), QStringLiteral("Not Now")}});
    if (answer != 0)
        return;
    // Not worth a second question; the menu's check mark shows the truth.
    if (const std::optional<QString> failure = m_platform.loginItem.enable())
        qCWarning(lcApp) << "Could not turn on launch at login:" << *failure;
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

void AppDelegate::runRemoteCommand(const QStringList &arguments,
                                   const std::function<void(const std::optional<QString> &refusal)> &answer)
{
    static const QMap<QString, CaptureMode> captures{
        {QStringLiteral("area"), CaptureMode::area},
        {QStringLiteral("window"), CaptureMode::window},
        {QStringLiteral("screen"), CaptureMode::fullScreen},
    };
    if (arguments.size() != 2 || arguments[0] != QLatin1String("capture") || !captures.contains(arguments[1])) {
        answer(QStringLiteral("unknown command: %1").arg(arguments.join(QLatin1Char(' '))));
        return;
    }
    if (!beginCaptureFlow()) {
        answer(QStringLiteral("a capture is already in progress"));
        return;
    }
    answer(std::nullopt);
    runCaptureFlow(newCaptureFlow(captures.value(arguments[1])));
}

} // namespace pixmora
