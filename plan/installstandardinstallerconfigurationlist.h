#pragma once

#include "plan/installconfigurationlist.h"

// The part of the plan that every product installed by this installer needs:
// a copy of the installer itself in "$(InstallerDir)" (the later removal runs
// it as "uninstall"), the removal of the installation record, and the
// installer's settings key. Products derive from it and add their components
// after these three hidden items.
class InstallStandardInstallerConfigurationList : public InstallConfigurationList
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallStandardInstallerConfigurationList)

public:
    InstallStandardInstallerConfigurationList();
};
