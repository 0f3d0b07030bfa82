#pragma once

#include "archive/packagearchive.h"
#include "media/installmedia.h"

// A medium that is a package archive, on its own or embedded at a byte offset
// of a larger data file. The archive is opened once, at construction, with the
// sorted name index so that each file of a copy is found by binary search.
class PackageArchiveInstallMedia : public InstallMedia
{
    Q_OBJECT
    Q_DISABLE_COPY(PackageArchiveInstallMedia)

public:
    // Throws HException with the archive's message when the file cannot be
    // opened as an archive.
    PackageArchiveInstallMedia(const QString &dataFile, qint64 offset, QObject *parent = nullptr);

    // Members whose name starts with folder (a plain prefix test), in table order.
    QStringList list(const QString &folder, quint64 &totalSize) override;
    quint64 totalSize() override;
    // Archive errors (such as "cannot create output file ") pass through as
    // HException, unchanged.
    void copyFiles(
        const QString &sourceFolder, const QStringList &files, const QString &destinationFolder) override;

private:
    PackageArchive m_archive;
};
