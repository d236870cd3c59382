#pragma once

#include <QString>

#include <optional>

namespace pixmora {

class Dialogs;
class FolderBookmarks;
class Settings;

// The folder that captures are saved into, kept as a folder bookmark in the
// settings. Nothing is kept in memory: every question reads the settings and
// resolves the bookmark again, so a renamed folder is followed and a folder
// moved to the Trash stops being used at once.
class SaveLocationStore {
public:
    // Without dialogs (the command line), the folder panel reads as cancelled.
    SaveLocationStore(Settings &settings, FolderBookmarks &bookmarks, Dialogs *dialogs = nullptr);

    // The folder, when it still exists, is a directory and is not in the
    // Trash. A bookmark to a folder that moved is rewritten here.
    std::optional<QString> currentFolder();

    // The folder panel; true when the user confirmed a folder, even when no
    // bookmark could be made of it.
    bool promptForFolder();

    // Confirms a folder as the panel does; false, storing nothing, when the
    // path is not an existing directory or cannot be remembered.
    bool setFolder(const QString &path);

private:
    bool rememberFolder(const QString &folder);

    Settings &m_settings;
    FolderBookmarks &m_bookmarks;
    Dialogs *m_dialogs;
};

} // namespace pixmora
