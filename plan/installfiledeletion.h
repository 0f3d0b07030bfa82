#pragma once

#include "core/heldfolder.h"

#include <QStringList>

class InstallConfigurationItem;

// Deletes the files an item put on disk and then the folders that became
// empty, reporting progress through the item's signals and asking through
// its list. Only regular files are deleted, each reached through folders held
// from the destination down, never through a link: a folder swapped for a
// link during the removal leads nowhere. Folders go only when empty, the
// deepest first, up to and including the destination and never above it;
// the folders of files outside the destination stay. A file that cannot be
// deleted gets Retry, Ignore or Cancel; Cancel throws
// InstallUserCancelException and leaves everything deleted so far deleted.
// The list's checkpoint is passed before each file, so a stop asked for can
// end the removal between two files. Nothing else fails.
class InstallFileDeletion
{
public:
    explicit InstallFileDeletion(InstallConfigurationItem *item);

    // paths may hold macros; they are expanded here.
    void deleteFiles(const QStringList &paths);

private:
    // The folder holding path and the file's name in it; an invalid folder
    // when there is nothing to delete there. relativeFolder is set for a
    // file below the destination.
    HeldFolder folderOf(const QString &path, QString &name, QString *relativeFolder);
    void deleteFile(const HeldFolder &folder, const QString &name, const QString &path);
    void removeEmptyFolders(const QStringList &relativeFolders);

    InstallConfigurationItem *m_item;
    QString m_destination;
    HeldFolder m_destinationFolder;
};
