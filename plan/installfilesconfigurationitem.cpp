#include "plan/installfilesconfigurationitem.h"

#include "core/fileutils.h"
#include "core/installexception.h"
#include "core/installlog.h"
#include "core/installmode.h"
#include "core/installquestion.h"
#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "plan/installfiledeletion.h"
#include "plan/installoverwritetest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

InstallFilesConfigurationItem::InstallFilesConfigurationItem(InstallConfigurationItem *parent,
    const QString &title, const QString &description, int level, bool visible, quint32 flags,
    const Entry *table)
    : InstallConfigurationItem(parent, title, description, level, visible, flags)
{
    for (const Entry *entry = table; entry && entry->source && *entry->source; ++entry) {
        m_entries.append({ QString::fromUtf8(entry->source),
            QString::fromUtf8(entry->destination ? entry->destination : ""), entry->flags });
    }
}

void InstallFilesConfigurationItem::installAction()
{
    announceTotalSteps(entryCount());
    InstallOverwriteTest overwriteTest(question());
    const std::optional<QSet<QString>> intact = list() ? list()->intactFiles() : std::nullopt;
    for (int i = 0; i < entryCount(); ++i) {
        emit progress(i);
        const File &entry = m_entries.at(i);
        if (entry.flags & SkipOnInstall)
            continue;

        const QString destination = expandMacros(entry.destination);
        if (intact && intact->contains(QDir::cleanPath(destination)))
            continue;
        const QString source = findSource(expandMacros(entry.source));
        struct stat status;
        if (::stat(QFile::encodeName(source).constData(), &status) != 0)
            throw InstallException(
                QStringLiteral("Cannot copy file ") + source + QStringLiteral(" to ") + destination);
        // A damaged file may keep its size and time: it is replaced unasked.
        if (!intact
            && !overwriteTest.shouldOverwrite(status.st_mtim.tv_sec, quint64(status.st_size), destination))
            continue;

        const QString folder = QFileInfo(destination).absolutePath();
        if (!FileUtils::makePath(folder))
            throw InstallException(QStringLiteral("Cannot create folder ") + folder);
        if (!FileUtils::copyFile(source, destination))
            throw InstallException(
                QStringLiteral("Cannot copy file ") + source + QStringLiteral(" to ") + destination);
        InstallLog::write(QStringLiteral("written ") + destination);
        if (intact)
            list()->addRewritten(1);
    }
}

QString InstallFilesConfigurationItem::findSource(const QString &source) const
{
    QString path = source;
    while (!QFileInfo(path).isFile()) {
        path = question()->locateFile(source);
        if (path.isEmpty())
            throw InstallException(QStringLiteral("Cannot find file '") + source + QStringLiteral("'"));
    }
    return path;
}

QStringList InstallFilesConfigurationItem::targets() const
{
    QStringList paths;
    for (const File &entry : m_entries) {
        if (!(entry.flags & SkipOnInstall))
            paths.append(expandMacros(entry.destination));
    }
    return paths;
}

void InstallFilesConfigurationItem::uninstallAction()
{
    // Files marked to stay are kept only when the product goes; a repair or
    // an upgrade replaces them like the rest.
    const bool removing = isMode(InstallMode::Remove);
    QStringList paths;
    for (const File &entry : std::as_const(m_entries)) {
        if (!(removing && (entry.flags & KeepOnRemove)))
            paths.append(entry.destination);
    }
    InstallFileDeletion(this).deleteFiles(paths);
}

InstallFootprints InstallFilesConfigurationItem::installFootprint() const
{
    InstallFootprints footprints;
    for (const File &entry : std::as_const(m_entries)) {
        if (entry.flags & SkipOnInstall)
            continue;
        const QFileInfo destination(expandMacros(entry.destination));
        const QFileInfo source(expandMacros(entry.source));
        footprints.append({ destination.absolutePath(), { destination.fileName() },
            source.isFile() ? quint64(source.size()) : 0 });
    }
    return footprints;
}

InstallFootprints InstallFilesConfigurationItem::removalFootprint() const
{
    const bool removing = isMode(InstallMode::Remove);
    InstallFootprints footprints;
    for (const File &entry : std::as_const(m_entries)) {
        const QFileInfo destination(expandMacros(entry.destination));
        if (!(removing && (entry.flags & KeepOnRemove)))
            footprints.append(
                InstallFootprint::onDisk(destination.absolutePath(), { destination.fileName() }));
    }
    return footprints;
}

void InstallFilesConfigurationItem::checkInstalledAction()
{
    int present = 0;
    for (const File &entry : std::as_const(m_entries)) {
        if (QFileInfo::exists(expandMacros(entry.destination)))
            ++present;
    }
    if (present == entryCount())
        setInstalled(fullyInstalled);
    else if (present == 0)
        setInstalled(notInstalled);
    else
        setInstalled(partiallyInstalled);
}
