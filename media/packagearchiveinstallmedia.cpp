#include "media/packagearchiveinstallmedia.h"

#include "core/installexception.h"

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
    for (const QString &name : files) {
        const QString source = sourceFolder + QLatin1Char('/') + name;
        const QString target = destinationFolder + QLatin1Char('/') + name;
        emit extractingFile(name);

        const PackageArchiveFile member = m_archive.find(source);
        if (member.isNull())
            throw InstallException(
                QStringLiteral("Cannot copy file ") + source + QStringLiteral(" to ") + target);
        const qint64 modified = member.time().isValid() ? member.time().toSecsSinceEpoch() : 0;
        if (!shouldCopy(modified, member.size(), target))
            continue;
        makeTargetFolder(target);
        m_archive.extractTo(member, destinationFolder, name, true);
        emit extractedFile(member.size());
    }
}
