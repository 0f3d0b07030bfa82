#pragma once

#include "installer/installstandardinstallerapplication.h"

// The installer of Tamrin Calvra: the standard installer with the product's
// own wording on its pages. User-interface thread only.
class BrantleInstallerApplication : public InstallStandardInstallerApplication
{
    Q_OBJECT
    Q_DISABLE_COPY(BrantleInstallerApplication)

public:
    BrantleInstallerApplication(const InstallCommandLine &commandLine, InstallConfigurationList *list,
        InstallWizardInterface *wizard, QObject *parent = nullptr);
    ~BrantleInstallerApplication() override;
};
