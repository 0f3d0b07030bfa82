#include "plan/installfiledeletion.h"

#include "core/fileutils.h"
#include "core/installquestion.h"
#include "core/installusercancelexception.h"
#include "core/macrotable.h"
#include "plan/installconfigurationitem.h"
#include "plan/planlogging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

InstallFileDeletion::InstallFileDeletion(InstallConfigurationItem *item)
    : m_item(item)
{ }

void InstallFileDeletion::deleteFiles(const QStringList &paths)
{
    emit m_item->progress(0);
    emit m_item->totalSteps(std::max<int>(int(paths.size()), 2));

    QStringList folders;
    int handled = 0;
    for (const QString &unexpanded : paths) {
        const QString path = expandMacros(unexpanded);
        addFolder(folders, QFileInfo(path).absolutePath());
        deleteFile(path);
        emit m_item->progress(++handled);
    }
    for (const QString &folder : std::as_const(folders))
        removeEmptyFolders(folder);
}

void InstallFileDeletion::deleteFile(const QString &path)
{
    const QByteArray encoded = QFile::encodeName(path);
    for (;;) {
        struct stat status;
        // A symbolic link, a folder or a device here is not what was
        // installed; it stays.
        if (::lstat(encoded.constData(), &status) != 0)
            return;
        if (!S_ISREG(status.st_mode)) {
            qCDebug(lcPlan) << "leaving" << path << "in place: not a regular file";
            return;
        }
        if (FileUtils::removeFile(path))
            return;
        const int answer = m_item->question()->ask(
            QStringLiteral("Cannot remove ") + QFileInfo(path).fileName(),
            QStringLiteral("The file ") + path
                + QStringLiteral(" cannot be removed, please check that it is not in use.<p>Click Retry to "
                                 "remove file, Ignore to skip the file or Cancel to terminate installation."),
            InstallQuestion::Retry | InstallQuestion::Ignore | InstallQuestion::Cancel,
            InstallQuestion::Retry);
        if (answer == InstallQuestion::Cancel)
            throw InstallUserCancelException();
        if (answer != InstallQuestion::Retry) {
            qCDebug(lcPlan) << "leaving" << path << "in place: it cannot be removed";
            return;
        }
    }
}

void InstallFileDeletion::addFolder(QStringList &folders, const QString &folder)
{
    // Longest first, so that nested folders go before their parents.
    if (folders.contains(folder))
        return;
    for (qsizetype i = 0; i < folders.size(); ++i) {
        if (folders.at(i).size() < folder.size()) {
            folders.insert(i, folder);
            return;
        }
    }
    folders.append(folder);
}

void InstallFileDeletion::removeEmptyFolders(const QString &start)
{
    const QString root = QStringLiteral("/");
    QString folder = start;
    const auto up = [](const QString &path) {
        const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
        return slash <= 0 ? QStringLiteral("/") : path.left(slash);
    };
    while (folder != root && !QFileInfo::exists(folder))
        folder = up(folder);
    while (folder != root
        && QDir(folder).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        // rmdir never takes anything but an empty folder; a refusal ends the climb.
        if (::rmdir(QFile::encodeName(folder).constData()) != 0)
            return;
        folder = up(folder);
    }
}
