#include "plan/installfileremovalconfigurationitem.h"

#include "core/installmode.h"
#include "plan/installfiledeletion.h"

InstallFileRemovalConfigurationItem::InstallFileRemovalConfigurationItem(InstallConfigurationItem *parent,
    const QString &title, const QString &description, int level, bool visible)
    : InstallConfigurationItem(parent, title, description, level, visible, AllFlags)
{ }

void InstallFileRemovalConfigurationItem::addFile(const QString &path)
{
    m_files.append(path);
}

void InstallFileRemovalConfigurationItem::uninstallAction()
{
    // A repair or an upgrade writes these files anew when it ends; until then
    // they must stay, so that a run killed halfway can still be repaired.
    if (isMode(InstallMode::Repair) || isMode(InstallMode::Upgrade))
        return;
    InstallFileDeletion(this).deleteFiles(m_files);
}
