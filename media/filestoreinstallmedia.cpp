#include "media/filestoreinstallmedia.h"

#include "core/fileutils.h"
#include "core/installexception.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <sys/stat.h>

namespace {

// Walks directory (a path on disk), adding regular files as prefix + name.
void collect(const QString &directory, const QString &prefix, QStringList &names, quint64 &totalSize)
{
    const QStringList entries = QDir(directory).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &entry : entries) {
        const QString path = directory + QLatin1Char('/') + entry;
        struct stat status;
        if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
            continue;
        if (S_ISDIR(status.st_mode)) {
            collect(path, prefix + entry + QLatin1Char('/'), names, totalSize);
        } else if (S_ISREG(status.st_mode)) {
            names.append(prefix + entry);
            totalSize += quint64(status.st_size);
        }
    }
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
    collect(path, QString(), names, totalSize);
    return names;
}

quint64 FileStoreInstallMedia::totalSize()
{
    QStringList names;
    quint64 size = 0;
    collect(m_root, QString(), names, size);
    return size;
}

void FileStoreInstallMedia::copyFiles(
    const QString &sourceFolder, const QStringList &files, const QString &destinationFolder)
{
    TargetFolders folders(destinationFolder);
    for (const QString &name : files) {
        const QString source = m_root + QLatin1Char('/') + sourceFolder + QLatin1Char('/') + name;
        const QString target = destinationFolder + QLatin1Char('/') + name;
        const QString failure
            = QStringLiteral("Cannot copy file ") + source + QStringLiteral(" to ") + target;
        emit extractingFile(name);

        // Nothing is asked about, or written to, a place outside the destination.
        struct stat status;
        if (::stat(QFile::encodeName(source).constData(), &status) != 0)
            throw InstallException(failure);
        const std::shared_ptr<HeldFolder> folder = folders.folderFor(name, failure);
        if (!shouldCopy(status.st_mtim.tv_sec, quint64(status.st_size), target))
            continue;
        if (!FileUtils::copyFile(source, *folder, TargetFolders::fileName(name)))
            throw InstallException(failure);
        emit extractedFile(quint64(status.st_size));
    }
}
