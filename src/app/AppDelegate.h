#pragma once

#include "app/HotKeyCenter.h"
#include "app/SaveLocationStore.h"
#include "app/Settings.h"
#include "capture/CaptureEngine.h"
#include "capture/SelectionOverlay.h"
#include "capture/WindowPicker.h"
#include "history/CaptureHistoryStore.h"
#include "platform/Platform.h"
#include "preview/PreviewPresenter.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace pixmora {


// The one long-lived object of the process: owns every other part, runs the
// capture flows one at a time and delivers what they capture.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    // historyDirectory: the history folder, or nothing when it cannot be had.
    AppDelegate(Platform platform, const QString &settingsPath, std::optional<QString> historyDirectory);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();

    // Capture commands (menu and hot keys).
    void startRegionCapture();
    void startWindowCapture();
    void startFullScreenCapture();
    void captureFullScreenFromMenu();
    void captureFullScreenDelayed();

    void deliver(const QList<CapturedImage> &images);

    // Menu.
    QMenu *buildMenu();
    void menuNeedsUpdate();
    void toggleClipboard();
    void toggleAlsoCopy();
    void toggleOpenAfter();
    void toggleShadow();
    void chooseFolder();
    void revealFolder();
    void toggleLaunchAtLogin();
    void askLaunchAtLogin();
    void showAbout();
    void showInstructions();

    // Runs a command line forwarded by a second start ("capture screen", ...).
    // Answers an empty text on success, otherwise the reason.
    QString runRemoteCommand(const QStringList &arguments);

    static constexpr int fullScreenMenuDelayMs = 400;
    static constexpr int fullScreenDelayedMs = 5000;
    static constexpr int windowCaptureDelayMs = 150;

    // For tests and the command line.
    Settings &settings() { return m_settings; }
    CaptureHistoryStore *history() { return m_history.get(); }
    bool captureFlowActive() const { return m_captureFlowActive; }
    RegionSelectionController *regionController() const { return m_regionController; }
    WindowPickerController *windowPicker() const { return m_windowPicker; }

private:
    bool beginCaptureFlow();
    void endCaptureFlow();
    void showCaptureError(const Error &error);
    DisplaySnapshots snapshotDisplays(const DisplayList &displays);
    void performWindowCapture(const WindowInfo &window);
    void showAlert(const QString &message, const QString &informative);
    void putOnPasteboard(const QList<QByteArray> &pngs);
    void openCapture(const QStringList &savedPaths, const std::optional<QString> &historyPath);

    Platform m_platform;
    HotKeyCenter m_hotKeys;
    Settings m_settings;
    SaveLocationStore m_saveLocation;
    PreviewPresenter m_previewPresenter;
    std::unique_ptr<CaptureHistoryStore> m_history;
    bool m_captureFlowActive = false;
    // The live overlay or picker of the running flow; deleted once it has finished.
    QPointer<RegionSelectionController> m_regionController;
    QPointer<WindowPickerController> m_windowPicker;

    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<QSystemTrayIcon> m_statusItem;
    QPointer<QAction> m_clipboardItem, m_alsoCopyItem, m_openAfterItem, m_shadowItem, m_folderItem, m_loginItem;
};

} // namespace pixmora
