#pragma once

#include "app/CaptureDelivery.h"
#include "app/HotKeyCenter.h"
#include "app/SaveLocationStore.h"
#include "app/Settings.h"
#include "app/StatusMenu.h"
#include "capture/CaptureFlow.h"
#include "history/CaptureHistoryStore.h"
#include "platform/Platform.h"
#include "preview/PreviewPresenter.h"

#include <QObject>

#include <functional>

#include <memory>
#include <optional>

class QSystemTrayIcon;

namespace pixmora {

// The one long-lived object of the process: it makes and wires every other
// part, runs the capture flows one at a time, and hands what they capture to
// delivery and the thumbnail.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    // historyDirectory: the history folder, or nothing when it cannot be had.
    AppDelegate(Platform platform, const QString &settingsPath, std::optional<QString> historyDirectory);
    ~AppDelegate() override;

    // The launch-at-login question, the tray icon and its menu, the shortcuts.
    void applicationDidFinishLaunching();

    // Capture commands of the shortcuts, the menu and the command line. While
    // a flow runs, another command is dropped.
    void startRegionCapture();
    void startWindowCapture();
    void startFullScreenCapture();
    void captureFullScreenFromMenu();
    void captureFullScreenDelayed();

    void deliver(const QList<CapturedImage> &images);

    void chooseFolder();
    // Shows the folder in the file manager, asking for one first when there
    // is none, and alerting when it still cannot be reached.
    void revealFolder();
    void askLaunchAtLogin();
    void toggleLaunchAtLogin();
    void showAbout();
    void showInstructions();

    // Runs a command line forwarded by a second start ("capture screen", ...).
    // The answer comes as soon as it is known whether the command runs (the
    // capture has taken the one-flow guard, or why not), before the capture
    // does anything, so that a command never waits on an alert of it.
    void runRemoteCommand(const QStringList &arguments,
                          const std::function<void(const std::optional<QString> &refusal)> &answer);

    static constexpr int fullScreenMenuDelayMs = 400;
    static constexpr int fullScreenDelayedMs = 5000;

    // For tests and the command line.
    Settings &settings() { return m_settings; }
    CaptureHistoryStore *history() { return m_history.get(); }
    bool captureFlowActive() const { return m_captureFlowActive; }
    CaptureFlow *captureFlow() const { return m_captureFlow.get(); }
    StatusMenu *statusMenu() const { return m_statusMenu.get(); }

private:
    enum class CaptureMode { area, window, fullScreen };
    std::unique_ptr<CaptureFlow> newCaptureFlow(CaptureMode mode);
    void startCapture(CaptureMode mode);
    bool beginCaptureFlow();
    void runCaptureFlow(std::unique_ptr<CaptureFlow> flow);
    void finishCaptureFlow(const CaptureOutcome &outcome);
    void showCaptureError(const Error &error);
    void showAlert(const QString &message, const QString &informative);
    void openCapture(const CaptureDelivery::Delivered &delivered);

    Platform m_platform;
    HotKeyCenter m_hotKeys;
    Settings m_settings;
    SaveLocationStore m_saveLocation;
    PreviewPresenter m_previewPresenter;
    std::unique_ptr<CaptureHistoryStore> m_history;
    CaptureDelivery m_delivery;
    bool m_captureFlowActive = false;
    std::unique_ptr<CaptureFlow> m_captureFlow;  // the live flow, until it has ended
    std::unique_ptr<StatusMenu> m_statusMenu;
    std::unique_ptr<QSystemTrayIcon> m_statusItem;
};

} // namespace pixmora
