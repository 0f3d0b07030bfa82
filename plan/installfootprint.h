#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// Files an item's action writes or deletes in one folder, and their size in
// bytes: what a dry run lists and what the space check adds up before an
// operation. Worked out without changing anything.
struct InstallFootprint
{
    // Absolute and expanded.
    QString folder;
    // Relative to folder.
    QStringList files;
    quint64 bytes = 0;

    // The sizes of those of names (relative to folder) that are regular
    // files now, as the deletion would find them; links are not followed.
    static InstallFootprint onDisk(const QString &folder, const QStringList &names);
};

using InstallFootprints = QList<InstallFootprint>;
