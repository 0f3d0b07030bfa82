#include "plan/installfiledeletion.h"

#include "core/installlog.h"
#include "core/installquestion.h"
#include "core/installusercancelexception.h"
#include "core/macrotable.h"
#include "plan/installconfigurationlist.h"
#include "plan/planlogging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

InstallFileDeletion::InstallFileDeletion(InstallConfigurationItem *item)
    : m_item(item)
    , m_destination(QDir::cleanPath(expandMacros(QStringLiteral("$(DestDir)"))))
{ }

void InstallFileDeletion::deleteFiles(const QStringList &paths)
{
    emit m_item->progress(0);
    emit m_item->totalSteps(std::max<int>(int(paths.size()), 2));

    InstallConfigurationList *root = m_item->list();
    QSet<QString> folders;
    int handled = 0;
    for (const QString &unexpanded : paths) {
        const QString path = expandMacros(unexpanded);
        if (root)
            root->passCheckpoint();
        QString name;
        QString relativeFolder;
        const HeldFolder folder = folderOf(path, name, &relativeFolder);
        if (folder.isValid()) {
            if (!relativeFolder.isNull())
                folders.insert(relativeFolder);
            deleteFile(folder, name, path);
        }
        emit m_item->progress(++handled);
    }
    removeEmptyFolders(folders.values());
}

HeldFolder InstallFileDeletion::folderOf(const QString &path, QString &name, QString *relativeFolder)
{
    const QString absolute = QDir::isAbsolutePath(path) ? path : QDir::current().absoluteFilePath(path);
    if (!m_destination.isEmpty() && m_destination != QLatin1String("/")
        && absolute.startsWith(m_destination + QLatin1Char('/'))) {
        QStringList parts
            = absolute.mid(m_destination.size() + 1).split(QLatin1Char('/'), Qt::SkipEmptyParts);
        // A name that climbs out of the destination was not written by us.
        if (parts.isEmpty() || parts.contains(QStringLiteral("..")) || parts.contains(QStringLiteral(".")))
            return HeldFolder();
        name = parts.takeLast();
        *relativeFolder = parts.join(QLatin1Char('/'));
        if (!m_destinationFolder.isValid())
            m_destinationFolder
                = HeldFolder::open(m_destination, HeldFolder::Existing, HeldFolder::RefuseLink);
        return m_destinationFolder.below(*relativeFolder);
    }
    name = QFileInfo(absolute).fileName();
    return HeldFolder::open(QFileInfo(absolute).absolutePath());
}

void InstallFileDeletion::deleteFile(const HeldFolder &folder, const QString &name, const QString &path)
{
    const QByteArray encoded = QFile::encodeName(name);
    for (;;) {
        struct stat status;
        // A symbolic link, a folder or a device here is not what was
        // installed; it stays.
        if (::fstatat(folder.fd(), encoded.constData(), &status, AT_SYMLINK_NOFOLLOW) != 0)
            return;
        if (!S_ISREG(status.st_mode)) {
            qCDebug(lcPlan) << "leaving" << path << "in place: not a regular file";
            return;
        }
        if (::unlinkat(folder.fd(), encoded.constData(), 0) == 0) {
            InstallLog::write(QStringLiteral("removed ") + path);
            return;
        }
        const int answer = m_item->question()->ask(QStringLiteral("Cannot remove ") + name,
            QStringLiteral("The file ") + path
                + QStringLiteral(" cannot be removed, please check that it is not in use.<p>Click Retry to "
                                 "remove file, Ignore to skip the file or Cancel to terminate installation."),
            InstallQuestion::Retry | InstallQuestion::Ignore | InstallQuestion::Cancel,
            InstallQuestion::Retry);
        if (answer == InstallQuestion::Cancel)
            throw InstallUserCancelException(QStringLiteral("Cannot remove file ") + path);
        if (answer != InstallQuestion::Retry) {
            qCDebug(lcPlan) << "leaving" << path << "in place: it cannot be removed";
            return;
        }
    }
}

void InstallFileDeletion::removeEmptyFolders(const QStringList &relativeFolders)
{
    if (!m_destinationFolder.isValid())
        return;
    // Deepest first, so nested folders emptied together all go.
    QStringList folders = relativeFolders;
    std::sort(folders.begin(), folders.end(),
        [](const QString &a, const QString &b) { return a.size() > b.size(); });
    for (QString folder : std::as_const(folders)) {
        // rmdir takes nothing but an empty folder; a refusal ends the climb.
        while (!folder.isEmpty()) {
            const qsizetype slash = folder.lastIndexOf(QLatin1Char('/'));
            const HeldFolder parent = m_destinationFolder.below(slash < 0 ? QString() : folder.left(slash));
            const QByteArray name = QFile::encodeName(folder.mid(slash + 1));
            if (!parent.isValid()
                || (::unlinkat(parent.fd(), name.constData(), AT_REMOVEDIR) != 0 && errno != ENOENT))
                break;
            folder = slash < 0 ? QString() : folder.left(slash);
        }
        if (!folder.isEmpty())
            continue;
        // The destination itself goes last, and only the folder held all along.
        const HeldFolder above = HeldFolder::open(QFileInfo(m_destination).absolutePath());
        const QByteArray name = QFile::encodeName(QFileInfo(m_destination).fileName());
        struct stat held;
        struct stat there;
        if (above.isValid() && ::fstat(m_destinationFolder.fd(), &held) == 0
            && ::fstatat(above.fd(), name.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0
            && held.st_dev == there.st_dev && held.st_ino == there.st_ino)
            ::unlinkat(above.fd(), name.constData(), AT_REMOVEDIR);
    }
}
