#pragma once

#include <QString>

#include <optional>

namespace pixmora {

class Desktop;
class Dialogs;
class FolderBookmarks;
class Settings;

// The folder that captures are saved into, kept as a folder bookmark in the
// settings. Nothing is kept in memory: every question reads the settings and
// resolves the bookmark again, so a renamed folder is followed and a folder
// moved to the Trash stops being used at once.
class SaveLocationStore {
public:
    SaveLocationStore(Settings &settings, FolderBookmarks &bookmarks, Dialogs &dialogs, Desktop &desktop);
    // Without a user interface (the command line): the panel reads as
    // cancelled and nothing is shown.
    SaveLocationStore(Settings &settings, FolderBookmarks &bookmarks);

    // The folder, when it still exists, is a directory and is not in the
    // Trash. A bookmark to a folder that moved is rewritten here.
    std::optional<QString> currentFolder();

    // The folder panel; true when the user confirmed a folder, even when no
    // bookmark could be made of it.
    bool promptForFolder();

    // Confirms a folder as the panel does; false, storing nothing, when the
    // path is not an existing directory.
    bool setFolder(const QString &path);

    // Shows the folder in the file manager, asking for one first when there
    // is none, and alerting when it still cannot be reached.
    void revealFolder();

private:
    void rememberFolder(const QString &folder);

    Settings &m_settings;
    FolderBookmarks &m_bookmarks;
    Dialogs &m_dialogs;
    Desktop &m_desktop;
};

} // namespace pixmora
