#include "app/SaveLocationStore.h"

#include "app/Settings.h"
#include "platform/Desktop.h"
#include "platform/Dialogs.h"
#include "platform/FolderBookmarks.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

namespace pixmora {

namespace {

class NoDialogs final : public Dialogs {
public:
    int runAlert(const Alert &) override { return 0; }
    std::optional<QString> chooseFolder(const QString &, const QString &, const QString &) override
    {
        return std::nullopt;
    }
    std::optional<QString> choosePngSaveLocation(const QString &) override { return std::nullopt; }
};

class NoDesktop final : public Desktop {
public:
    void openFile(const QString &) override {}
    void revealInFileManager(const QString &) override {}
    void beep() override {}
    quint64 activeWindow() override { return 0; }
    void activateWindow(quint64) override {}
    void activateApplication() override {}
    void makeOverlay(QWindow *) override {}
    void giveKeyboardTo(QWindow *) override {}
    bool drawOverlayBackdrop(QWindow *, const QImage &, QColor) override { return false; }
    void makeFloatingPanel(QWidget *) override {}
};

NoDialogs noDialogs;
NoDesktop noDesktop;

} // namespace

SaveLocationStore::SaveLocationStore(Settings &settings, FolderBookmarks &bookmarks, Dialogs &dialogs,
                                     Desktop &desktop)
    : m_settings(settings), m_bookmarks(bookmarks), m_dialogs(dialogs), m_desktop(desktop)
{
}

SaveLocationStore::SaveLocationStore(Settings &settings, FolderBookmarks &bookmarks)
    : SaveLocationStore(settings, bookmarks, noDialogs, noDesktop)
{
}

std::optional<QString> SaveLocationStore::currentFolder()
{
    const QByteArray bookmark = m_settings.saveFolderBookmark();
    if (bookmark.isEmpty())
        return std::nullopt;
    const auto resolved = m_bookmarks.resolve(bookmark);
    if (!resolved || !QFileInfo(resolved->path).isDir() || m_bookmarks.isInTrash(resolved->path))
        return std::nullopt;
    if (resolved->stale) {
        if (const auto fresh = m_bookmarks.create(resolved->path))
            m_settings.setSaveFolderBookmark(*fresh);
    }
    return resolved->path;
}

bool SaveLocationStore::promptForFolder()
{
    m_desktop.activateApplication();
    const QString desktopFolder = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    const QString startFolder = QFileInfo(desktopFolder).isDir() ? desktopFolder : QDir::homePath();
    const auto chosen = m_dialogs.chooseFolder(
        startFolder, QStringLiteral("Choose where Pixmora saves your screenshots (Desktop is a good default)"),
        QStringLiteral("Choose"));
    if (!chosen || chosen->isEmpty())
        return false;
    rememberFolder(*chosen);
    return true;
}

bool SaveLocationStore::setFolder(const QString &path)
{
    const QFileInfo folder(path);
    if (!folder.isDir())
        return false;
    rememberFolder(QDir::cleanPath(folder.absoluteFilePath()));
    return true;
}

// A folder that cannot be bookmarked leaves the previous choice in place;
// the caller still counts the choice as made.
void SaveLocationStore::rememberFolder(const QString &folder)
{
    if (const auto bookmark = m_bookmarks.create(folder))
        m_settings.setSaveFolderBookmark(*bookmark);
}

void SaveLocationStore::revealFolder()
{
    if (!currentFolder() && !promptForFolder())
        return;
    if (const auto folder = currentFolder()) {
        m_desktop.revealInFileManager(*folder);
        return;
    }
    m_desktop.activateApplication();
    m_dialogs.runAlert({QStringLiteral("Could Not Access the Save Folder"),
                        QStringLiteral("Use \"Save To…\" to choose the folder again."),
                        {QStringLiteral("OK")}});
}

} // namespace pixmora
