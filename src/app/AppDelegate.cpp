#include "app/AppDelegate.h"

#include "app/CaptureFileNames.h"
#include "app/StatusItemIcon.h"
#include "capture/AreaCaptureFlow.h"
#include "capture/CaptureEngine.h"
#include "capture/FullScreenCaptureFlow.h"
#include "capture/ScrollingCaptureFlow.h"
#include "capture/WindowCaptureFlow.h"
#include "image/ImageMemory.h"
#include "image/PngThumbnail.h"
#include "platform/AtomicFile.h"
#include "platform/Logging.h"

#include <QBuffer>
#include <QCursor>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QMap>
#include <QMenu>
#include <QPointer>
#include <QSystemTrayIcon>
#include <QThreadPool>
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

    // Made now, its window at the first opening: it readies the thumbnails
    // of every capture from the start.
    if (m_history) {
        // A capture from the history has no delivered files for Discard to delete.
        const QPointer<AppDelegate> self(this);
        m_historyWindow = std::make_unique<HistoryWindowController>(
            *m_history, m_platform.clipboard, m_platform.dialogs,
            [self](const QImage &image, double scale, const QString &) {
                if (self)
                    self->openMarkupEditor(image, scale, {});
            },
            // Beside the history, as private as the captures it shows.
            QFileInfo(m_history->directory()).dir().filePath(QStringLiteral("Thumbnails")));
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
                             command(&AppDelegate::startScrollingCapture),
                             command(&AppDelegate::captureFullScreenDelayed), command(&AppDelegate::chooseFolder),
                             command(&AppDelegate::revealFolder), command(&AppDelegate::toggleLaunchAtLogin),
                             command(&AppDelegate::showInstructions), command(&AppDelegate::showAbout),
                             command(&AppDelegate::showHistory)});
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/pixmora.svg")));
    m_statusItem = std::make_unique<QSystemTrayIcon>(statusItemIcon());
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
    m_hotKeys.registerHotKey(HotKeyCenter::keyCode4, controlShift, command(&AppDelegate::startScrollingCapture));

    QTimer::singleShot(captureWarmUpDelayMs, this, &AppDelegate::warmUpCapture);
}

void AppDelegate::warmUpCapture()
{
    if (m_captureFlowActive)
        return;  // that capture has readied everything
    try {
        CaptureEngine::warmUp(m_platform.screens);
    } catch (const Error &error) {
        qCWarning(lcApp) << "Could not ready the capture path; the first capture will be slower:"
                         << error.description();
    }
}

// --- Capture flows ---

bool AppDelegate::beginCaptureFlow()
{
    if (m_captureFlowActive)
        return false;
    m_captureFlowActive = true;
    m_previewPresenter.dismiss(false);
    if (m_historyWindow)
        m_historyWindow->pauseBackgroundWork(true);
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
    if (m_historyWindow)
        m_historyWindow->pauseBackgroundWork(false);
}

std::unique_ptr<CaptureFlow> AppDelegate::newCaptureFlow(CaptureMode mode)
{
    switch (mode) {
    case CaptureMode::area:
        return std::make_unique<AreaCaptureFlow>(m_platform.screens, m_platform.desktop);
    case CaptureMode::window:
        return std::make_unique<WindowCaptureFlow>(m_platform.screens, m_platform.desktop, m_settings.windowShadow());
    case CaptureMode::scrolling:
        return std::make_unique<ScrollingCaptureFlow>(m_platform.screens, m_platform.desktop, m_platform.dialogs);
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

bool AppDelegate::finishRunningScrollCapture()
{
    auto *scrolling = qobject_cast<ScrollingCaptureFlow *>(m_captureFlow.get());
    return scrolling && scrolling->finishScrollCapture();
}

void AppDelegate::startScrollingCapture()
{
    if (!finishRunningScrollCapture())
        startCapture(CaptureMode::scrolling);
}

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
    const CapturedImage &primary = images.first();
    const QByteArray &png = delivered.primaryPng;
    QImage shown = primary.image;
    double shownScale = primary.scale;
    // What a click on the thumbnail edits. Up to twice a display's pixels (a
    // window with its shadow) the pixels: decoding a 4K PNG would delay the
    // editor by a few hundred ms. A display encoded as it was read is
    // decoded at once on another thread, ready long before a click. Beyond
    // that, a scrolling capture of 150 MB, only the PNG bytes, some 30 times
    // smaller and shared with the clipboard, decoded on click (about a
    // second for 1600 x 24000).
    std::function<QImage()> pixelsToEdit;
    if (shown.isNull()) {
        // Started first, so that both decodes run at once on two cores.
        const std::shared_future<QImage> decoding = decodeInBackground(png);
        pixelsToEdit = [decoding] { return decoding.get(); };
        shown = thumbnailPicture(png, primary.scale, &shownScale);
        if (shown.isNull())
            shown = decoding.get();  // no larger than the thumbnail: shown whole
    } else if (png.isEmpty() || qint64(shown.width()) * shown.height() <= 2 * largestDisplayPixels()) {
        pixelsToEdit = [kept = primary.image] { return kept; };
    } else {
        pixelsToEdit = [png] { return decodedCapture(png); };
    }
    const QPointer<AppDelegate> self(this);
    m_previewPresenter.show(shown, shownScale,
                            [self, pixelsToEdit, scale = primary.scale, savedPaths = delivered.savedPaths] {
                                if (!self)
                                    return;
                                const QImage image = pixelsToEdit();
                                if (!image.isNull())
                                    self->openMarkupEditor(image, scale, savedPaths);
                            });
}

// The thumbnail's picture of a capture that exists only as PNG: reduced while
// it decodes to what the largest thumbnail shows on the densest display, with
// the scale that keeps its size in points. Null when the capture is no
// larger than that, or does not decode.
QImage AppDelegate::thumbnailPicture(const QByteArray &png, double scale, double *pictureScale) const
{
    *pictureScale = scale;
    QBuffer buffer;
    buffer.setData(png);
    const QSize pixels = QImageReader(&buffer, "png").size();
    if (pixels.isEmpty())
        return {};
    double densest = 1.0;
    for (const DisplayInfo &display : m_platform.screens.displays())
        densest = std::max(densest, display.scale);
    const QSize reduced = (PreviewPresenter::thumbnailSize(QSizeF(pixels) / scale) * densest).toSize();
    if (reduced.width() >= pixels.width() || reduced.height() >= pixels.height() || reduced.isEmpty())
        return {};
    QImage picture = decodePngThumbnail(png, reduced);
    if (!picture.isNull())
        *pictureScale = scale * reduced.width() / pixels.width();
    return picture;
}

std::shared_future<QImage> AppDelegate::decodeInBackground(const QByteArray &png)
{
    auto decoded = std::make_shared<std::promise<QImage>>();
    std::shared_future<QImage> result = decoded->get_future().share();
    QThreadPool::globalInstance()->start([decoded, png] { decoded->set_value(decodedCapture(png)); });
    return result;
}

QImage AppDelegate::decodedCapture(const QByteArray &png)
{
    QBuffer buffer;
    buffer.setData(png);
    QImageReader reader(&buffer, "png");
    reader.setAllocationLimit(CaptureHistoryStore::largestImageMegabytes);
    // Into memory of our own: from the heap, a 4K image stays with the
    // decoding thread's arena after it is freed.
    QImage image = allocateImage(reader.size(), reader.imageFormat());
    if (!reader.read(&image)) {
        qCWarning(lcApp) << "Could not decode the capture again to edit it:" << reader.errorString();
        return {};
    }
    return image;
}

qint64 AppDelegate::largestDisplayPixels() const
{
    qint64 largest = 0;
    for (const DisplayInfo &display : m_platform.screens.displays()) {
        const QSizeF pixels = QSizeF(display.frame.size()) * display.scale;
        largest = std::max(largest, qint64(pixels.width()) * qint64(pixels.height()));
    }
    return largest;
}

// --- Editing a capture ---

void AppDelegate::openMarkupEditor(const QImage &image, double scale, const QStringList &savedPaths)
{
    auto editor = std::make_unique<MarkupEditorController>(image, scale, m_platform);
    MarkupEditorController *opened = editor.get();
    // The editors are ours: they cannot call back once we are gone.
    editor->onSave = [this](const QImage &edited, double editedScale) { saveEditedImage(edited, editedScale); };
    editor->onDiscard = [this, savedPaths] { discardCapture(savedPaths); };
    editor->onClosed = [this, opened] { closeMarkupEditor(opened); };
    m_markupEditors.push_back(std::move(editor));
    opened->present();
}

// Called from inside the window's close event: the editor goes once that has returned.
void AppDelegate::closeMarkupEditor(MarkupEditorController *editor)
{
    const auto found = std::find_if(m_markupEditors.begin(), m_markupEditors.end(),
                                    [editor](const auto &open) { return open.get() == editor; });
    if (found == m_markupEditors.end())
        return;
    found->release()->deleteLater();
    m_markupEditors.erase(found);
}

void AppDelegate::saveEditedImage(const QImage &image, double scale)
{
    const QString name = captureFileName(captureDateText(QDateTime::currentDateTime()));
    const QByteArray png = CaptureEngine::pngData(image, scale);
    if (const std::optional<QString> folder = m_saveLocation.currentFolder()) {
        try {
            CaptureEngine::writePNG(png, QDir(*folder).filePath(name));
            return;
        } catch (const Error &error) {
            // The save panel offers another place.
            qCWarning(lcApp) << "Could not save the edited image in the save folder:" << error.description();
        }
    }
    const std::optional<QString> chosen = m_platform.dialogs.choosePngSaveLocation(name);
    if (!chosen)
        return;
    try {
        CaptureEngine::writePNG(png, *chosen);
    } catch (const Error &error) {
        qCWarning(lcApp) << "Could not save the edited image:" << error.description();
    }
}

void AppDelegate::discardCapture(const QStringList &savedPaths)
{
    if (!savedPaths.isEmpty() && m_saveLocation.currentFolder()) {
        for (const QString &path : savedPaths) {
            QFile file(path);
            if (!file.remove())
                qCWarning(lcApp) << "Could not delete the discarded capture" << path << ":" << file.errorString();
        }
    }
    if (m_platform.clipboard.hasImage())
        m_platform.clipboard.clear();
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

void AppDelegate::showHistory()
{
    if (!m_history) {
        showAlert(QStringLiteral("History Unavailable"),
                  QStringLiteral("Pixmora could not open its own storage folder."));
        return;
    }
    m_platform.desktop.activateApplication();
    m_historyWindow->showWindow();
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
        {QStringLiteral("scrolling"), CaptureMode::scrolling},
    };
    if (arguments.size() != 2 || arguments[0] != QLatin1String("capture") || !captures.contains(arguments[1])) {
        answer(QStringLiteral("unknown command: %1").arg(arguments.join(QLatin1Char(' '))));
        return;
    }
    if (captures.value(arguments[1]) == CaptureMode::scrolling && finishRunningScrollCapture()) {
        answer(std::nullopt);
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
