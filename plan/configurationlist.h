#pragma once

#include "plan/installstandardinstallerconfigurationlist.h"

// The plan of Tamrin Calvra: the standard installer items, then one product
// group holding the ten medium folders, the optional udev rules, the three
// file types, the menu entry and the removal of files the product writes
// itself. The macros Product and Version must be set before it is built:
// titles are expanded once, here; paths stay unexpanded until the items act.
class ConfigurationList : public InstallStandardInstallerConfigurationList
{
    Q_OBJECT
    Q_DISABLE_COPY(ConfigurationList)

public:
    // systemWide: the menu entry and file types go to "/usr/share" (true) or
    // to the user's "$HOME/.local/share" (false).
    explicit ConfigurationList(bool systemWide = true);
};
