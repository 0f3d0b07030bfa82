#include "plan/installfileremovalconfigurationitem.h"

#include "core/installmode.h"
#include "core/macrotable.h"
#include "plan/installfiledeletion.h"

#include <QFileInfo>

InstallFileRemovalConfigurationItem::InstallFileRemovalConfigurationItem(InstallConfigurationItem *parent,
    const QString &title, const QString &description, int level, bool visible)
    : InstallConfigurationItem(parent, title, description, level, visible, AllFlags)
{ }

void InstallFileRemovalConfigurationItem::addFile(const QString &path)
{
    m_files.append(path);
}

InstallFootprints InstallFileRemovalConfigurationItem::removalFootprint() const
{
    if (isMode(InstallMode::Repair) || isMode(InstallMode::Upgrade))
        return {};
    InstallFootprints footprints;
    for (const QString &file : m_files) {
        const QFileInfo path(expandMacros(file));
        footprints.append(InstallFootprint::onDisk(path.absolutePath(), { path.fileName() }));
    }
    return footprints;
}

void InstallFileRemovalConfigurationItem::uninstallAction()
{
    // A repair or an upgrade writes these files anew when it ends; until then
    // they must stay, so that a run killed halfway can still be repaired.
    if (isMode(InstallMode::Repair) || isMode(InstallMode::Upgrade))
        return;
    InstallFileDeletion(this).deleteFiles(m_files);
}
