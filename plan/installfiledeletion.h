#pragma once

#include <QStringList>

class InstallConfigurationItem;

// Deletes the files an item put on disk and then the folders that became
// empty, reporting progress through the item's signals and asking through
// its list. Only regular files are deleted; folders go only when empty, the
// deepest first, and the root folder never. A file that cannot be deleted
// gets Retry, Ignore or Cancel; Cancel throws InstallUserCancelException and
// leaves everything deleted so far deleted. Nothing else fails.
class InstallFileDeletion
{
public:
    explicit InstallFileDeletion(InstallConfigurationItem *item);

    // paths may hold macros; they are expanded here.
    void deleteFiles(const QStringList &paths);

private:
    void deleteFile(const QString &path);
    static void addFolder(QStringList &folders, const QString &folder);
    static void removeEmptyFolders(const QString &folder);

    InstallConfigurationItem *m_item;
};
