#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <sys/types.h>

class InstallConfigurationItem;

// What an installation wrote below its destination, kept beside the record
// in "$(InstallerDir)/manifest.sha256": for every file its SHA-256, size and
// mode, in the form "sha256sum -c" reads when started in the destination:
//
//   # 0644 1234
//   3a7bd3e2360a3d29eea436fcfb7e44c735d117c42d1c1835420b6b9942dd4f1b  bin/Setup
//
// The comment before each file holds its mode (octal) and size in bytes;
// sha256sum passes over it. A name holding a backslash or a line break is
// written as sha256sum writes it: the line starts with "\" and the name has
// "\\" and "\n". Names are relative to the destination and obey the rules of
// archive member names.
//
// Files are read through the held destination folder without following a
// link, on as many threads as there are cores: a hash costs more than the
// read of a warm file, and the disk is read at its speed only when both
// cores hash. A manifest written after an installation takes the files this
// run wrote, unchanged since, at the digest noted as they were written; a
// check always reads. Called on the user-interface thread.
class InstallManifest
{
public:
    struct Entry
    {
        QString name;
        QByteArray sha256; // 32 bytes
        qint64 size = 0;
        mode_t mode = 0;
    };
    enum Difference {
        Missing = 1,
        Size = 2,
        Mode = 4,
        Content = 8,
    };
    struct Finding
    {
        QString name;
        int differences;
    };

    // The expansion of "$(InstallerDir)/manifest.sha256".
    static QString defaultPath();

    // The files the plan's installed items wrote below destination, relative
    // to it; files written elsewhere (desktop integration) are not kept.
    static QStringList installedFiles(const InstallConfigurationItem *root, const QString &destination);
    // Measures names below destination; a name that is no regular file is
    // left out. Writes the manifest through a replacement file; false when
    // it cannot.
    static bool write(const QString &path, const QString &destination, const QStringList &names);
    // Empty when path held a manifest, else why not ("there is none", "it is
    // damaged: line N", ...). Read as the record is: run as root, throws
    // HException when another user owns it or may write it.
    static QString read(const QString &path, QList<Entry> &entries);
    // The files below destination that differ from entries, in their order.
    static QList<Finding> check(const QString &destination, const QList<Entry> &entries);

    // "missing", or rpm -V style flags "SM5" with a dot for each that is
    // equal (size, mode, content), for a finding's differences.
    static QString describe(int differences);
};
