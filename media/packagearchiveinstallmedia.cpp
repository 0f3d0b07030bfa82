#include "media/packagearchiveinstallmedia.h"

#include "archive/packagearchiveextraction.h"
#include "core/hexception.h"
#include "core/installexception.h"

#include <malloc.h>

PackageArchiveInstallMedia::PackageArchiveInstallMedia(
    const QString &dataFile, qint64 offset, QObject *parent)
    : InstallMedia(parent)
{
    m_archive.open(dataFile, offset, PackageArchive::SortedIndex);
}

QStringList PackageArchiveInstallMedia::list(const QString &folder, quint64 &totalSize)
{
    // Only the prefix is tested, so "bin" also lists a sibling "binaries";
    // the product's folder names are chosen so that this cannot happen.
    QStringList names;
    totalSize = 0;
    for (int i = 0; i < m_archive.count(); ++i) {
        const PackageArchiveFile member = m_archive.member(i);
        if (!member.name().startsWith(folder))
            continue;
        names.append(member.name().mid(folder.size() + 1));
        totalSize += member.size();
    }
    return names;
}

quint64 PackageArchiveInstallMedia::totalSize()
{
    quint64 size = 0;
    for (int i = 0; i < m_archive.count(); ++i)
        size += m_archive.member(i).size();
    return size;
}

void PackageArchiveInstallMedia::copyFiles(
    const QString &sourceFolder, const QStringList &files, const QString &destinationFolder)
{
    // Files are written several at a time, yet the user sees them handled one
    // by one: a file is announced when its bytes are the next to be written
    // and reported once they are, and before a question about a file the
    // ones before it are in place, so that nothing is asked after a file
    // that failed. A failure leaves the files after it unreported; a Cancel
    // or a shutdown abandons what is under way.
    PackageArchiveExtraction extraction(m_archive);
    extraction.reportWriting(ProgressInterval, ProgressBytes);
    InProgressFiles *const list = inProgress();
    extraction.setInProgress(list);
    TargetFolders folders(destinationFolder, list);
    const auto place = [&](int index) {
        const QString &name = files[index];
        const QString source = sourceFolder + QLatin1Char('/') + name;
        const QString target = destinationFolder + QLatin1Char('/') + name;
        // Nothing is asked about, or written to, a place outside the destination.
        const PackageArchiveFile member = m_archive.find(source);
        if (member.isNull())
            throw copyFailure(source, target);
        PackageArchiveExtraction::Target placed { member, folders.folderFor(name, source, target),
            TargetFolders::fileName(name), target, true, false, {} };
        // Where nothing stood there is nothing to decide, nor where a run cut short left its own file.
        placed.free = !folders.taken(name);
        if (!placed.free && !folders.takeUnfinished(name)) {
            placed.admit = [this, member, target] {
                const qint64 modified = member.time().isValid() ? member.time().toSecsSinceEpoch() : 0;
                return shouldCopy(modified, member.size(), target);
            };
        }
        return placed;
    };
    extraction.extract(int(files.size()), place, [&](const PackageArchiveExtraction::Progress &progress) {
        switch (progress.event) {
        case PackageArchiveExtraction::Progress::Next:
            passCheckpoint();
            emit extractingFile(files[progress.index]);
            break;
        case PackageArchiveExtraction::Progress::Writing:
            passCheckpoint();
            emit extractedBytes(quint64(progress.bytes));
            break;
        case PackageArchiveExtraction::Progress::Written:
            emit extractedFile(quint64(progress.bytes));
            break;
        }
    });
    ::malloc_trim(0);
}
