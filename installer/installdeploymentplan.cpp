#include "installer/installdeploymentplan.h"

#include "plan/installconfigurationlist.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace {

const quint64 Megabyte = 1000 * 1000;

QStringList paths(const InstallFootprints &footprints)
{
    QStringList result;
    for (const InstallFootprint &footprint : footprints) {
        for (const QString &file : footprint.files)
            result.append(footprint.folder + QLatin1Char('/') + file);
    }
    return result;
}

quint64 bytes(const InstallFootprints &footprints)
{
    quint64 sum = 0;
    for (const InstallFootprint &footprint : footprints)
        sum += footprint.bytes;
    return sum;
}

QString actionName(const InstallDeploymentPlan::Step &step)
{
    if (step.removes && step.installs)
        return QStringLiteral("replace");
    return step.removes ? QStringLiteral("remove") : QStringLiteral("install");
}

quint64 netNeed(const InstallDeploymentPlan::FileSystem &fileSystem)
{
    return fileSystem.needed > fileSystem.freed ? fileSystem.needed - fileSystem.freed : 0;
}

} // namespace

InstallDeploymentPlan::InstallDeploymentPlan(InstallConfigurationList *list, bool removes, bool installs)
{
    addStep(list, removes, installs);
    for (const Step &step : std::as_const(m_steps)) {
        for (const InstallFootprint &footprint : step.writes) {
            FileSystem &fileSystem = fileSystemOf(footprint.folder);
            // Each file's last block is half used on average.
            fileSystem.needed += footprint.bytes + quint64(footprint.files.size()) * fileSystem.blockSize / 2;
        }
        for (const InstallFootprint &footprint : step.deletions)
            fileSystemOf(footprint.folder).freed += footprint.bytes;
    }
}

void InstallDeploymentPlan::addStep(InstallConfigurationItem *item, bool removes, bool installs)
{
    // As the walks decide: a removal takes what is installed and will be
    // uninstalled, the installation what will be installed and is not fully
    // there once the removal is done.
    const bool removing
        = removes && item->installed() != InstallConfigurationItem::notInstalled && item->willUninstall();
    const bool installing = installs && item->willInstall()
        && (removing || item->installed() != InstallConfigurationItem::fullyInstalled);
    // The list itself is the plan, not a step of it.
    if ((removing || installing) && item->parentItem()) {
        m_steps.append(
            { item, removing, installing, installing ? item->installFootprint() : InstallFootprints(),
                removing ? item->removalFootprint() : InstallFootprints() });
    }
    for (InstallConfigurationItem *child : item->children())
        addStep(child, removes, installs);
}

InstallDeploymentPlan::FileSystem &InstallDeploymentPlan::fileSystemOf(const QString &folder)
{
    // The folder may not exist yet: the nearest one above it that does lies
    // on the file system it will be made on.
    QString path = QDir::cleanPath(folder);
    struct stat status;
    while (::stat(QFile::encodeName(path).constData(), &status) != 0 && path != QLatin1String("/"))
        path = QFileInfo(path).path();
    const quint64 device = quint64(status.st_dev);
    const int known = m_devices.indexOf(device);
    if (known >= 0)
        return m_fileSystems[known];

    // Its mount point is the last folder upwards on the same device.
    QString mount = path;
    while (mount != QLatin1String("/")) {
        const QString parent = QFileInfo(mount).path();
        struct stat above;
        if (::stat(QFile::encodeName(parent).constData(), &above) != 0 || above.st_dev != status.st_dev)
            break;
        mount = parent;
    }
    FileSystem fileSystem;
    fileSystem.mount = mount;
    struct statvfs space;
    if (::statvfs(QFile::encodeName(path).constData(), &space) == 0) {
        fileSystem.free = quint64(space.f_bavail) * space.f_frsize;
        fileSystem.blockSize = space.f_frsize;
    }
    m_devices.append(device);
    m_fileSystems.append(fileSystem);
    return m_fileSystems.last();
}

void InstallDeploymentPlan::compareFiles(const QString &destination, const QStringList &bookkeeping)
{
    QSet<QString> written;
    for (const Step &step : std::as_const(m_steps)) {
        for (const QString &path : paths(step.writes))
            written.insert(path);
    }
    QSet<QString> deleted;
    for (const Step &step : std::as_const(m_steps)) {
        for (const QString &path : paths(step.deletions)) {
            deleted.insert(path);
            (written.contains(path) ? m_replaced : m_removed).append(path);
        }
    }
    // What the user added below the destination; links are listed, never entered.
    QDirIterator files(destination, QDir::Files | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        if (!written.contains(path) && !deleted.contains(path) && !bookkeeping.contains(path))
            m_kept.append(path);
    }
    m_replaced.sort();
    m_removed.sort();
    m_kept.sort();
}

QString InstallDeploymentPlan::spaceShortage() const
{
    for (const FileSystem &fileSystem : m_fileSystems) {
        const quint64 need = netNeed(fileSystem);
        if (need > fileSystem.free) {
            return QStringLiteral("not enough space on %1: %2 MB needed, %3 MB free")
                .arg(fileSystem.mount)
                .arg((need + Megabyte - 1) / Megabyte)
                .arg(fileSystem.free / Megabyte);
        }
    }
    return QString();
}

QString InstallDeploymentPlan::text(const QString &mode, const QString &destination) const
{
    QString text = QStringLiteral("mode: ") + mode + QStringLiteral("\ndestination: ") + destination
        + QLatin1Char('\n');
    for (const Step &step : m_steps) {
        const InstallFootprints &footprints = step.installs ? step.writes : step.deletions;
        const qsizetype count = paths(footprints).size();
        text += QStringLiteral("%1 %2: %3 %4, %5 bytes\n")
                    .arg(actionName(step), step.item->title())
                    .arg(count)
                    .arg(count == 1 ? QStringLiteral("file") : QStringLiteral("files"))
                    .arg(bytes(footprints));
    }
    for (const FileSystem &fileSystem : m_fileSystems) {
        text += QStringLiteral("space on %1: %2 MB needed, %3 MB free\n")
                    .arg(fileSystem.mount)
                    .arg((netNeed(fileSystem) + Megabyte - 1) / Megabyte)
                    .arg(fileSystem.free / Megabyte);
    }
    const std::pair<const char *, const QStringList *> lists[]
        = { { "replaced ", &m_replaced }, { "removed ", &m_removed }, { "kept ", &m_kept } };
    for (const auto &[label, files] : lists) {
        for (const QString &path : *files)
            text += QLatin1String(label) + path + QLatin1Char('\n');
    }
    return text;
}

QByteArray InstallDeploymentPlan::json(const QString &mode, const QString &destination) const
{
    QJsonArray items;
    for (const Step &step : m_steps) {
        const InstallFootprints &footprints = step.installs ? step.writes : step.deletions;
        items.append(QJsonObject { { QStringLiteral("title"), step.item->title() },
            { QStringLiteral("action"), actionName(step) },
            { QStringLiteral("files"), double(paths(footprints).size()) },
            { QStringLiteral("bytes"), double(bytes(footprints)) },
            { QStringLiteral("write"), QJsonArray::fromStringList(paths(step.writes)) },
            { QStringLiteral("delete"), QJsonArray::fromStringList(paths(step.deletions)) } });
    }
    QJsonArray space;
    for (const FileSystem &fileSystem : m_fileSystems) {
        space.append(QJsonObject { { QStringLiteral("mount"), fileSystem.mount },
            { QStringLiteral("needed"), double(netNeed(fileSystem)) },
            { QStringLiteral("free"), double(fileSystem.free) } });
    }
    QJsonObject plan { { QStringLiteral("mode"), mode }, { QStringLiteral("destination"), destination },
        { QStringLiteral("items"), items }, { QStringLiteral("space"), space },
        { QStringLiteral("replaced"), QJsonArray::fromStringList(m_replaced) },
        { QStringLiteral("removed"), QJsonArray::fromStringList(m_removed) },
        { QStringLiteral("kept"), QJsonArray::fromStringList(m_kept) } };
    const QString shortage = spaceShortage();
    if (!shortage.isEmpty())
        plan.insert(QStringLiteral("error"), shortage);
    return QJsonDocument(plan).toJson(QJsonDocument::Indented);
}
