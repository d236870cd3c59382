#pragma once

#include "platform/LocalSecurity.h"
#include "platform/Platform.h"

#include <QImage>
#include <QList>
#include <QMap>

#include <deque>
#include <functional>
#include <vector>

class QWidget;

namespace pixmora {

// In-memory platform services for tests: they record what the program asked
// and answer what the test set up.

class FakeScreenCapture : public ScreenCapture {
public:
    DisplayList displayList;
    WindowList windowList;
    QMap<quint32, QImage> displayImages;   // by display id; missing -> a plain fill
    QMap<quint64, QImage> windowImages;    // by window id; missing -> throws
    std::function<void(const DisplayInfo &)> beforeDisplayCapture;  // may throw to simulate failures
    int displayCaptureCount = 0;
    int exclusionsHeld = 0;  // own-window exclusions alive now

    DisplayList displays() override { return displayList; }
    WindowList windows() override { return windowList; }
    QImage captureDisplay(const DisplayInfo &display) override;
    QImage captureRegion(const DisplayInfo &display, const QRectF &rect) override;
    QImage captureWindow(const WindowInfo &window, double scale) override;
    std::unique_ptr<OwnWindowsExclusion> excludeOwnWindows(const DisplayInfo &display, const QRectF &rect,
                                                           const QRectF &panel) override;

    // A display at the given frame and scale whose image is a recognisable pattern.
    static DisplayInfo display(quint32 id, QRect frame, double scale);
};

class FakeHotKeys : public GlobalHotKeys {
public:
    struct Grab {
        quint32 id, keyCode, modifiers;
    };
    std::vector<Grab> grabs;
    QList<quint32> refusedKeyCodes;

    bool grab(quint32 id, quint32 keyCode, quint32 modifiers) override;
    void press(quint32 id) { if (onPressed) onPressed(id); }
};

// Holds images or text, not both, as an X clipboard does.
class FakeClipboard : public Clipboard {
public:
    QList<QByteArray> items;
    std::optional<QString> text;
    int writeCount = 0;

    void setPngImages(const QList<QByteArray> &pngs) override;
    void setText(const QString &newText) override;
    bool hasImage() override { return !items.isEmpty(); }
    void clear() override
    {
        items.clear();
        text.reset();
    }
};

class FakeDialogs : public Dialogs {
public:
    QList<Alert> alerts;                          // every alert shown, in order
    std::function<void(const Alert &)> whileAlertIsOpen;
    std::deque<int> alertAnswers;                 // answers for the next alerts; default 0
    std::deque<std::optional<QString>> folderAnswers;  // default: cancelled
    std::deque<std::optional<QString>> saveAnswers;    // default: cancelled
    QStringList folderPanelStarts, saveProposals;

    int runAlert(const Alert &alert) override;
    std::optional<QString> chooseFolder(const QString &startFolder, const QString &message,
                                        const QString &confirmButton) override;
    std::optional<QString> choosePngSaveLocation(const QString &proposedName) override;
};

class FakeDesktop : public Desktop {
public:
    QStringList openedFiles, revealedPaths;
    int beeps = 0, activations = 0;
    quint64 active = 0;
    QList<quint64> activatedWindows;
    QList<QWindow *> overlays;
    QWindow *keyboardOverlay = nullptr;
    QList<QWidget *> floatingPanels;
    bool drawsOverlayBackdrops = false;  // what drawOverlayBackdrop answers
    int backdropsDrawn = 0;

    void openFile(const QString &path) override { openedFiles << path; }
    void revealInFileManager(const QString &path) override { revealedPaths << path; }
    void beep() override { ++beeps; }
    quint64 activeWindow() override { return active; }
    void activateWindow(quint64 window) override { activatedWindows << window; }
    void activateApplication() override { ++activations; }
    void makeOverlay(QWindow *window) override { overlays << window; }
    void giveKeyboardTo(QWindow *overlay) override { keyboardOverlay = overlay; }
    bool drawOverlayBackdrop(QWindow *, const QImage &, QColor) override
    {
        backdropsDrawn += drawsOverlayBackdrops ? 1 : 0;
        return drawsOverlayBackdrops;
    }
    void makeFloatingPanel(QWidget *widget, PanelFocus) override { floatingPanels << widget; }
    bool compositing = true;
    bool isCompositing() override { return compositing; }
};

class FakeLoginItem : public LoginItem {
public:
    bool enabled = false;
    std::optional<QString> failure;  // answered by enable and disable when set

    bool isEnabled() override { return enabled; }
    std::optional<QString> enable() override;
    std::optional<QString> disable() override;
};

// Bookmarks are plain paths; a test moves a folder by editing `moved`.
class FakeFolderBookmarks : public FolderBookmarks {
public:
    QMap<QString, QString> moved;  // old path -> new path
    QStringList trashed;

    std::optional<QByteArray> create(const QString &folder) override;
    std::optional<Resolved> resolve(const QByteArray &bookmark) override;
    bool isInTrash(const QString &path) override { return trashed.contains(path); }
};

class FakeSharingServices : public SharingServices {
public:
    std::vector<Application> applications;
    struct Launch {
        QString applicationId, path;
    };
    std::vector<Launch> launches;
    std::optional<QString> failure;  // answered by openWith when set

    std::vector<Application> pngApplications() override { return applications; }
    std::optional<QString> openWith(const QString &applicationId, const QString &path) override
    {
        launches.push_back({applicationId, path});
        return failure;
    }
};

// Real files, with owners and peers that a test can make up: a path listed in
// `owners` reads as owned by that user, and connections come from `peerUser`.
class FakeLocalSecurity : public LocalSecurity {
public:
    uint user = 1000;
    std::optional<uint> peerUser = 1000;
    QMap<QString, uint> owners;   // path -> owner; others belong to `user`
    QMap<QString, int> modes;     // path -> mode; others read their real mode
    QStringList lockedByOthers;
    QStringList locks;            // taken by this process
    QList<qint64> runningProcesses;

    uint userId() override { return user; }
    FileStatus status(const QString &path) override;
    std::optional<QString> makePrivateFolder(const QString &path) override;
    std::optional<uint> peerUserId(qintptr) override { return peerUser; }
    Lock lockForLife(const QString &path) override;
    bool isLocked(const QString &path) override { return lockedByOthers.contains(path) || locks.contains(path); }
    bool isProcessRunning(qint64 pid) override { return runningProcesses.contains(pid); }
};

struct FakePlatform {
    FakeScreenCapture screens;
    FakeHotKeys hotKeys;
    FakeClipboard clipboard;
    FakeDialogs dialogs;
    FakeDesktop desktop;
    FakeLoginItem loginItem;
    FakeFolderBookmarks bookmarks;
    FakeSharingServices sharing;

    Platform platform() { return {screens, hotKeys, clipboard, dialogs, desktop, loginItem, bookmarks, sharing}; }
};

} // namespace pixmora
