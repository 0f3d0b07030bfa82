#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

// The record of one archive member, owned by its PackageArchive and shared by
// every PackageArchiveFile handle on it.
struct PackageArchiveData
{
    enum Storage : quint32 {
        None = 0,
        InArchive = 1, // bytes at offset in the archive's uncompressed body
        OnDisk = 2, // bytes in the file at sourcePath, read when needed
        InMemory = 3, // bytes held in bytes
    };

    quint32 storage = None;
    QString name;
    QString sourcePath;
    quint32 offset = 0;
    quint32 size = 0;
    quint32 mode = 0;
    QDateTime time;
    quint8 selected = 0;
    QByteArray bytes;
};
