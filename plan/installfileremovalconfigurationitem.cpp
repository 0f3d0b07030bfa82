#include "plan/installfileremovalconfigurationitem.h"

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
    InstallFileDeletion(this).deleteFiles(m_files);
}
