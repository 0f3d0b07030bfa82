#pragma once

#include "plan/installconfigurationitem.h"

#include <QStringList>

// Deletes, when the product is removed, files that no other item owns: files
// the product or the installer writes after installation (the installation
// record, caches), so that their folders can go too. Installs nothing and
// checks nothing.
class InstallFileRemovalConfigurationItem : public InstallConfigurationItem
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallFileRemovalConfigurationItem)

public:
    InstallFileRemovalConfigurationItem(InstallConfigurationItem *parent, const QString &title,
        const QString &description, int level, bool visible);

    // path may hold macros; they are expanded at removal.
    void addFile(const QString &path);
    QStringList files() const { return m_files; }
    InstallFootprints removalFootprint() const override;

protected:
    void uninstallAction() override;

private:
    QStringList m_files;
};
