#include "media/packagearchiveinstallmedia.h"

#include "core/hexception.h"
#include "core/installexception.h"
#include "media/packagearchiveextraction.h"

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
    // Each file is announced and decided here before its bytes are queued;
    // it is reported once it is in place, in the same order.
    PackageArchiveExtraction extraction(m_archive);
    const auto reportReady = [&](bool wait) {
        while (extraction.pending() > 0 && (wait || extraction.full() || extraction.nextReady()))
            emit extractedFile(extraction.takeNext().size());
    };
    TargetFolders folders(destinationFolder);
    try {
        for (const QString &name : files) {
            const QString source = sourceFolder + QLatin1Char('/') + name;
            const QString target = destinationFolder + QLatin1Char('/') + name;
            emit extractingFile(name);

            // Nothing is asked about, or written to, a place outside the destination.
            const QString failure
                = QStringLiteral("Cannot copy file ") + source + QStringLiteral(" to ") + target;
            const PackageArchiveFile member = m_archive.find(source);
            if (member.isNull())
                throw InstallException(failure);
            const std::shared_ptr<HeldFolder> folder = folders.folderFor(name, failure);
            const qint64 modified = member.time().isValid() ? member.time().toSecsSinceEpoch() : 0;
            // Where nothing stood there is nothing to decide.
            if (folders.taken(name) && !shouldCopy(modified, member.size(), target))
                continue;
            extraction.addIn(member, folder, TargetFolders::fileName(name), target, true);
            reportReady(false);
        }
    } catch (const HException &) {
        // A failure keeps the files before it, reported as if copied one by
        // one; an earlier file's failure is the one that counts. A Cancel or
        // a shutdown abandons what is under way instead.
        reportReady(true);
        throw;
    } catch (const InstallException &) {
        reportReady(true);
        throw;
    }
    reportReady(true);
}
