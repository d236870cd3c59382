#include "app/CaptureDelivery.h"

#include "app/CaptureFileNames.h"
#include "app/SaveLocationStore.h"
#include "app/Settings.h"
#include "capture/CaptureEngine.h"
#include "history/CaptureHistoryStore.h"
#include "platform/Logging.h"

#include <QDateTime>
#include <QDir>

namespace pixmora {

CaptureDelivery::CaptureDelivery(Settings &settings, SaveLocationStore &saveLocation, CaptureHistoryStore *history,
                                 Platform platform)
    : m_settings(settings), m_saveLocation(saveLocation), m_history(history), m_platform(platform)
{
}

void CaptureDelivery::showAlert(const QString &message, const QString &informative)
{
    m_platform.dialogs.runAlert({message, informative});
}

void CaptureDelivery::putOnPasteboard(const QList<QByteArray> &pngs)
{
    QList<QByteArray> items;
    for (const QByteArray &png : pngs) {
        if (!png.isEmpty())
            items << png;
    }
    if (!items.isEmpty())
        m_platform.clipboard.setPngImages(items);
}

// The same bytes go to the clipboard, the save folder and the history.
CaptureDelivery::Delivered CaptureDelivery::deliver(const QList<CapturedImage> &images)
{
    QList<QByteArray> pngs;
    pngs.reserve(images.size());
    for (const CapturedImage &captured : images) {
        pngs << (captured.png.isEmpty() ? CaptureEngine::pngData(captured.image, captured.scale) : captured.png);
        if (pngs.last().isEmpty())
            qCWarning(lcApp) << "Could not encode a" << captured.image.size() << "capture as PNG.";
    }

    // Resolving the folder can mean searching for it; once decides both the
    // clipboard and whether to write. It is resolved again right before writing.
    const bool clipboardOnly = m_settings.copyToClipboard();
    const bool hasFolder = !clipboardOnly && m_saveLocation.currentFolder().has_value();
    if (clipboardOnly)
        putOnPasteboard(pngs);
    else if (m_settings.alsoCopyToClipboard())
        putOnPasteboard(hasFolder ? pngs.mid(0, 1) : pngs);

    Delivered delivered;
    if (hasFolder)
        delivered.savedPaths = saveToFolder(pngs);
    addToHistory(pngs);
    delivered.primaryPng = pngs.first();
    return delivered;
}

QStringList CaptureDelivery::saveToFolder(const QList<QByteArray> &pngs)
{
    const QString dateText = captureDateText(QDateTime::currentDateTime());
    const std::optional<QString> folder = m_saveLocation.currentFolder();
    if (!folder) {
        showAlert(QStringLiteral("Could Not Access the Save Folder"),
                  QString::fromUtf8("The screenshot is still on the clipboard. Use \"Save To…\" to "
                                    "choose the folder again."));
        return {};
    }
    QStringList savedPaths, failures;
    for (int index = 0; index < pngs.size(); ++index) {
        const QString path = QDir(*folder).filePath(captureFileName(dateText, index + 1));
        try {
            CaptureEngine::writePNG(pngs[index], path);
            savedPaths << path;
        } catch (const Error &error) {
            failures << error.description();
        }
    }
    if (m_settings.openAfterCapture()) {
        for (const QString &path : savedPaths)
            m_platform.desktop.openFile(path);
    }
    if (!failures.isEmpty()) {
        QString text = failures.first() + QStringLiteral("\nThe screenshot is still on the clipboard.");
        if (!savedPaths.isEmpty())
            text += QStringLiteral(" %1 of %2 files were saved.").arg(savedPaths.size()).arg(pngs.size());
        showAlert(QStringLiteral("Could Not Save the Screenshot"), text);
    }
    return savedPaths;
}

// Every image, whatever the mode.
void CaptureDelivery::addToHistory(const QList<QByteArray> &pngs)
{
    if (!m_history)
        return;
    for (const QByteArray &png : pngs) {
        if (!png.isEmpty())
            m_history->add(png, QDateTime::currentDateTimeUtc());
    }
}

} // namespace pixmora
