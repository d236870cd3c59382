#include "platform/fake/FakePlatform.h"

#include "platform/Error.h"

#include <QDir>
#include <QFileInfo>
#include <QPainter>

#include <cmath>

namespace pixmora {

namespace {
template <typename T>
T takeFront(std::deque<T> &queue, T fallback)
{
    if (queue.empty())
        return fallback;
    T value = std::move(queue.front());
    queue.pop_front();
    return value;
}

class FakeExclusion : public OwnWindowsExclusion {
public:
    explicit FakeExclusion(int &held) : m_held(held) { ++m_held; }
    ~FakeExclusion() override { --m_held; }

private:
    int &m_held;
};

QSize pixelSize(QSizeF points, double scale)
{
    return {int(std::floor(points.width() * scale)), int(std::floor(points.height() * scale))};
}
} // namespace

DisplayInfo FakeScreenCapture::display(quint32 id, QRect frame, double scale)
{
    return {id, frame, frame.adjusted(0, 0, 0, -40), scale, QStringLiteral("FAKE-%1").arg(id)};
}

// Unknown displays get a gradient so that crops of different places differ.
QImage FakeScreenCapture::captureDisplay(const DisplayInfo &display)
{
    ++displayCaptureCount;
    if (beforeDisplayCapture)
        beforeDisplayCapture(display);
    if (displayImages.contains(display.id))
        return displayImages.value(display.id);
    QImage image(pixelSize(display.frame.size(), display.scale), QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        auto *row = reinterpret_cast<QRgb *>(image.scanLine(y));
        for (int x = 0; x < image.width(); ++x)
            row[x] = qRgb(x & 0xff, y & 0xff, int(display.id * 40) & 0xff);
    }
    return image;
}

QImage FakeScreenCapture::captureRegion(const DisplayInfo &display, const QRectF &rect)
{
    const QImage full = captureDisplay(display);
    const QPointF offset = (rect.topLeft() - QPointF(display.frame.topLeft())) * display.scale;
    return full.copy(QRect(offset.toPoint(), pixelSize(rect.size(), display.scale)));
}

QImage FakeScreenCapture::captureWindow(const WindowInfo &window, double scale)
{
    if (!windowImages.contains(window.id))
        throw Error(QStringLiteral("The window is no longer available."));
    return windowImages.value(window.id).scaled(pixelSize(window.frame.size(), scale));
}

std::unique_ptr<OwnWindowsExclusion> FakeScreenCapture::excludeOwnWindows(const DisplayInfo &, const QRectF &, const QRectF &)
{
    return std::make_unique<FakeExclusion>(exclusionsHeld);
}

bool FakeHotKeys::grab(quint32 id, quint32 keyCode, quint32 modifiers)
{
    if (refusedKeyCodes.contains(keyCode))
        return false;
    grabs.push_back({id, keyCode, modifiers});
    return true;
}

void FakeClipboard::setPngImages(const QList<QByteArray> &pngs)
{
    ++writeCount;
    items = pngs;
    text.reset();
}

void FakeClipboard::setText(const QString &newText)
{
    ++writeCount;
    items.clear();
    text = newText;
}

int FakeDialogs::runAlert(const Alert &alert)
{
    alerts << alert;
    if (whileAlertIsOpen)
        whileAlertIsOpen(alert);
    return takeFront(alertAnswers, 0);
}

std::optional<QString> FakeDialogs::chooseFolder(const QString &startFolder, const QString &, const QString &)
{
    folderPanelStarts << startFolder;
    return takeFront<std::optional<QString>>(folderAnswers, std::nullopt);
}

std::optional<QString> FakeDialogs::choosePngSaveLocation(const QString &proposedName)
{
    saveProposals << proposedName;
    return takeFront<std::optional<QString>>(saveAnswers, std::nullopt);
}

std::optional<QString> FakeLoginItem::enable()
{
    if (failure)
        return failure;
    enabled = true;
    return std::nullopt;
}

std::optional<QString> FakeLoginItem::disable()
{
    if (failure)
        return failure;
    enabled = false;
    return std::nullopt;
}

std::optional<QByteArray> FakeFolderBookmarks::create(const QString &folder)
{
    return folder.toUtf8();
}

std::optional<FolderBookmarks::Resolved> FakeFolderBookmarks::resolve(const QByteArray &bookmark)
{
    const QString path = QString::fromUtf8(bookmark);
    if (moved.contains(path))
        return Resolved{moved.value(path), true};
    if (!QDir(path).exists())
        return std::nullopt;
    return Resolved{path, false};
}

// What is neither a file nor a folder nor a link reads as a socket.
LocalSecurity::FileStatus FakeLocalSecurity::status(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return {};
    FileStatus result;
    result.kind = info.isSymLink() || info.isFile() ? FileStatus::Kind::other
                  : info.isDir()                    ? FileStatus::Kind::folder
                                                    : FileStatus::Kind::socket;
    result.owner = owners.value(path, user);
    const QFile::Permissions permissions = info.permissions();
    const int realMode = (permissions & QFile::ReadOwner ? 0400 : 0) | (permissions & QFile::WriteOwner ? 0200 : 0)
                         | (permissions & QFile::ExeOwner ? 0100 : 0) | (permissions & QFile::ReadGroup ? 040 : 0)
                         | (permissions & QFile::WriteGroup ? 020 : 0) | (permissions & QFile::ExeGroup ? 010 : 0)
                         | (permissions & QFile::ReadOther ? 04 : 0) | (permissions & QFile::WriteOther ? 02 : 0)
                         | (permissions & QFile::ExeOther ? 01 : 0);
    result.mode = modes.value(path, realMode);
    return result;
}

std::optional<QString> FakeLocalSecurity::makePrivateFolder(const QString &path)
{
    if (!QDir().mkdir(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner))
        return QStringLiteral("Cannot make the folder");
    return std::nullopt;
}

LocalSecurity::Lock FakeLocalSecurity::lockForLife(const QString &path)
{
    if (owners.contains(path) && owners.value(path) != user)
        return {false, path + QStringLiteral(" belongs to another user")};
    if (isLocked(path))
        return {false, std::nullopt};
    locks << path;
    return {true, std::nullopt};
}

} // namespace pixmora
