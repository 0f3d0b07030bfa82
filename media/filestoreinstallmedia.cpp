#include "media/filestoreinstallmedia.h"

#include "core/fileutils.h"
#include "core/installexception.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QPair>
#include <QSet>

#include <cerrno>
#include <sys/stat.h>

namespace {

// Folders on the way down, by device and inode, so a link back up is not
// walked for ever.
using FolderChain = QSet<QPair<dev_t, ino_t>>;

// Walks directory (a path on disk), adding regular files as prefix + name. A
// link stands for what it points to, as an archive would have stored it; a
// link to nothing is listed too, so that copying it fails as a missing file
// instead of the file going missing silently.
void collect(const QString &directory, const QString &prefix, QStringList &names, quint64 &totalSize,
    FolderChain &chain)
{
    const QStringList entries = QDir(directory).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &entry : entries) {
        const QString path = directory + QLatin1Char('/') + entry;
        struct stat status;
        if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
            continue;
        const bool link = S_ISLNK(status.st_mode);
        if (link && ::stat(QFile::encodeName(path).constData(), &status) != 0) {
            names.append(prefix + entry);
            continue;
        }
        if (S_ISDIR(status.st_mode)) {
            const QPair<dev_t, ino_t> folder(status.st_dev, status.st_ino);
            if (chain.contains(folder))
                continue;
            chain.insert(folder);
            collect(path, prefix + entry + QLatin1Char('/'), names, totalSize, chain);
            chain.remove(folder);
        } else if (S_ISREG(status.st_mode)) {
            names.append(prefix + entry);
            totalSize += quint64(status.st_size);
        }
    }
}

void collect(const QString &directory, QStringList &names, quint64 &totalSize)
{
    FolderChain chain;
    struct stat status;
    if (::stat(QFile::encodeName(directory).constData(), &status) == 0)
        chain.insert({ status.st_dev, status.st_ino });
    collect(directory, QString(), names, totalSize, chain);
}

} // namespace

FileStoreInstallMedia::FileStoreInstallMedia(const QString &root, QObject *parent)
    : InstallMedia(parent)
    , m_root(root)
{ }

QStringList FileStoreInstallMedia::list(const QString &folder, quint64 &totalSize)
{
    QStringList names;
    totalSize = 0;
    // A medium without one of its folders is damaged: installing nothing
    // from it would report a success that is not one.
    const QString path = m_root + QLatin1Char('/') + folder;
    if (!QFileInfo(path).isDir())
        throw InstallException(QStringLiteral("Cannot find folder ") + path);
    collect(path, names, totalSize);
    return names;
}

quint64 FileStoreInstallMedia::totalSize()
{
    QStringList names;
    quint64 size = 0;
    collect(m_root, names, size);
    return size;
}

void FileStoreInstallMedia::copyFiles(
    const QString &sourceFolder, const QStringList &files, const QString &destinationFolder)
{
    TargetFolders folders(destinationFolder, inProgress());
    QElapsedTimer sinceProgress;
    qint64 reported = 0;
    const auto written = [&](qint64 bytes) {
        if (sinceProgress.hasExpired(ProgressInterval) || bytes / ProgressBytes != reported / ProgressBytes) {
            reported = bytes;
            passCheckpoint();
            emit extractedBytes(quint64(bytes));
            sinceProgress.start();
        }
    };
    for (const QString &name : files) {
        const QString source = m_root + QLatin1Char('/') + sourceFolder + QLatin1Char('/') + name;
        const QString target = destinationFolder + QLatin1Char('/') + name;
        passCheckpoint();
        emit extractingFile(name);

        // Nothing is asked about, or written to, a place outside the destination.
        struct stat status;
        if (::stat(QFile::encodeName(source).constData(), &status) != 0)
            throw copyFailure(source, target);
        const std::shared_ptr<HeldFolder> folder = folders.folderFor(name, source, target);
        // A file a run cut short left is its own to replace.
        if (!folders.takeUnfinished(name)
            && !shouldCopy(status.st_mtim.tv_sec, quint64(status.st_size), target))
            continue;
        sinceProgress.start();
        reported = 0;
        if (!FileUtils::copyFile(source, *folder, TargetFolders::fileName(name), written))
            throw copyFailure(source, target);
        emit extractedFile(quint64(status.st_size));
    }
}
