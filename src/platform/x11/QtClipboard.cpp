#include "platform/x11/QtClipboard.h"

#include "platform/Logging.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

#include <algorithm>

namespace pixmora {

void QtClipboard::setPngImages(const QList<QByteArray> &pngs)
{
    if (pngs.isEmpty()) {
        clear();
        return;
    }
    auto *data = new QMimeData;
    data->setData(QStringLiteral("image/png"), pngs.first());
    QClipboard *clipboard = QGuiApplication::clipboard();
    clipboard->setMimeData(data, QClipboard::Clipboard);
    // Qt reports nothing when the X server refuses us the selection.
    if (!clipboard->ownsClipboard())
        qCWarning(lcPlatform) << "Could not take the clipboard: the capture is not on it.";
}

void QtClipboard::setText(const QString &text)
{
    QClipboard *clipboard = QGuiApplication::clipboard();
    clipboard->setText(text, QClipboard::Clipboard);
    if (!clipboard->ownsClipboard())
        qCWarning(lcPlatform) << "Could not take the clipboard: the text is not on it.";
}

bool QtClipboard::hasImage()
{
    const QMimeData *data = QGuiApplication::clipboard()->mimeData(QClipboard::Clipboard);
    if (!data)
        return false;
    const QStringList formats = data->formats();
    return data->hasImage() || std::any_of(formats.begin(), formats.end(), [](const QString &format) {
               return format.startsWith(QLatin1String("image/"));
           });
}

void QtClipboard::clear()
{
    QGuiApplication::clipboard()->clear(QClipboard::Clipboard);
}

} // namespace pixmora
