#pragma once

#include "app/CaptureDelivery.h"
#include "app/HotKeyCenter.h"
#include "app/SaveLocationStore.h"
#include "app/Settings.h"
#include "app/StatusMenu.h"
#include "capture/CaptureFlow.h"
#include "history/CaptureHistoryStore.h"
#include "history/HistoryWindowController.h"
#include "markup/MarkupEditorController.h"
#include "platform/Platform.h"
#include "preview/PreviewPresenter.h"

#include <QObject>

#include <functional>
#include <future>

#include <memory>
#include <optional>
#include <vector>

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
    // While a scrolling capture runs, finishes it as Done does.
    void startScrollingCapture();
    void captureFullScreenFromMenu();
    void captureFullScreenDelayed();

    void deliver(const QList<CapturedImage> &images);

    // A markup editor on the image, open until its window closes; its
    // Discard removes savedPaths (the files its delivery wrote; none when
    // opened from the history).
    void openMarkupEditor(const QImage &image, double scale, const QStringList &savedPaths);
    // An edited image becomes a new file in the save folder, else where the
    // save panel says; the delivered files and the history stay as they are.
    void saveEditedImage(const QImage &image, double scale);
    // Deletes the delivered files (only while the save folder can be had)
    // and takes an image off the clipboard, whoever put it there.
    void discardCapture(const QStringList &savedPaths);

    void chooseFolder();
    // Shows the folder in the file manager, asking for one first when there
    // is none, and alerting when it still cannot be reached.
    void revealFolder();
    // The "Recent Captures" window, reloaded and brought forward at every opening.
    void showHistory();
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
    // Once the tray has settled: the first capture then finds everything ready.
    static constexpr int captureWarmUpDelayMs = 500;

    // For tests and the command line.
    Settings &settings() { return m_settings; }
    CaptureHistoryStore *history() { return m_history.get(); }
    bool captureFlowActive() const { return m_captureFlowActive; }
    CaptureFlow *captureFlow() const { return m_captureFlow.get(); }
    StatusMenu *statusMenu() const { return m_statusMenu.get(); }
    const std::vector<std::unique_ptr<MarkupEditorController>> &markupEditors() const { return m_markupEditors; }
    HistoryWindowController *historyWindow() const { return m_historyWindow.get(); }

private:
    enum class CaptureMode { area, window, fullScreen, scrolling };
    // A second scrolling command ends the running scrolling capture as Done does.
    bool finishRunningScrollCapture();
    std::unique_ptr<CaptureFlow> newCaptureFlow(CaptureMode mode);
    void startCapture(CaptureMode mode);
    bool beginCaptureFlow();
    void runCaptureFlow(std::unique_ptr<CaptureFlow> flow);
    void finishCaptureFlow(const CaptureOutcome &outcome);
    void showCaptureError(const Error &error);
    void warmUpCapture();
    void showAlert(const QString &message, const QString &informative);
    void closeMarkupEditor(MarkupEditorController *editor);
    qint64 largestDisplayPixels() const;
    // A capture kept as PNG, decoded again however tall; null, logged, when it cannot be.
    static QImage decodedCapture(const QByteArray &png);
    static std::shared_future<QImage> decodeInBackground(const QByteArray &png);
    QImage thumbnailPicture(const QByteArray &png, double scale, double *pictureScale) const;

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
    std::vector<std::unique_ptr<MarkupEditorController>> m_markupEditors;  // in the order opened
    std::unique_ptr<HistoryWindowController> m_historyWindow;  // listens to m_history
};

} // namespace pixmora
