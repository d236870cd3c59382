#include "app/AppDelegate.h"
#include "app/CaptureFileNames.h"

#include <QDateTime>
#include <QDir>

namespace pixmora {

void AppDelegate::putOnPasteboard(const QList<QByteArray> &pngs)
{
    QList<QByteArray> items;
    for (const QByteArray &png : pngs) {
        if (!png.isEmpty())
            items << png;
    }
    if (!items.isEmpty())
        m_platform.clipboard.setPngImages(items);
}

// Each image is encoded once; the same bytes go to the pasteboard, the save
// folder and the history.
void AppDelegate::deliver(const QList<CapturedImage> &images)
{
    if (images.isEmpty())
        return;

    QList<QByteArray> pngs;
    pngs.reserve(images.size());
    for (const CapturedImage &captured : images)
        pngs << CaptureEngine::pngData(captured.image, captured.scale);

    // Resolving the folder can mean searching for it; once decides both the
    // pasteboard and whether to write. It is resolved again right before writing.
    const bool clipboardOnly = m_settings.copyToClipboard();
    const bool hasFolder = !clipboardOnly && m_saveLocation.currentFolder().has_value();
    if (clipboardOnly) {
        putOnPasteboard(pngs);
    } else if (m_settings.alsoCopyToClipboard()) {
        putOnPasteboard(hasFolder ? pngs.mid(0, 1) : pngs);
    }

    QStringList savedPaths;
    if (hasFolder) {
        const QString dateText = captureDateText(QDateTime::currentDateTime());
        const std::optional<QString> folder = m_saveLocation.currentFolder();
        if (!folder) {
            showAlert(QStringLiteral("Could Not Access the Save Folder"),
                      QString::fromUtf8("The screenshot is still on the clipboard. Use \"Save To…\" to "
                                        "choose the folder again."));
        } else {
            QStringList failures;
            for (int index = 0; index < images.size(); ++index) {
                const QString path = QDir(*folder).filePath(captureFileName(dateText, index + 1));
                try {
                    if (pngs[index].isEmpty())
                        throw Error(QStringLiteral("The image could not be encoded as PNG."));
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
                    text += QStringLiteral(" %1 of %2 files were saved.").arg(savedPaths.size()).arg(images.size());
                showAlert(QStringLiteral("Could Not Save the Screenshot"), text);
            }
        }
    }

    std::optional<QString> primaryHistoryPath;
    if (m_history) {
        for (int index = 0; index < images.size(); ++index) {
            if (pngs[index].isEmpty())
                continue;
            const std::optional<QString> path = m_history->add(pngs[index], QDateTime::currentDateTimeUtc());
            if (index == 0)
                primaryHistoryPath = path;
        }
    }

    const QPointer<AppDelegate> self(this);
    m_previewPresenter.show(images.first().image, images.first().scale, [self, savedPaths, primaryHistoryPath] {
        if (self)
            self->openCapture(savedPaths, primaryHistoryPath);
    });
}

// Until the markup editor exists, a click on the thumbnail shows the capture
// in the user's image viewer: the saved file, else the history copy.
void AppDelegate::openCapture(const QStringList &savedPaths, const std::optional<QString> &historyPath)
{
    if (!savedPaths.isEmpty())
        m_platform.desktop.openFile(savedPaths.first());
    else if (historyPath)
        m_platform.desktop.openFile(*historyPath);
}

} // namespace pixmora
