#include "installer/brantleinstallerapplication.h"

#include "installer/installwizardinterface.h"

BrantleInstallerApplication::BrantleInstallerApplication(const InstallCommandLine &commandLine,
    InstallConfigurationList *list, InstallWizardInterface *wizard, QObject *parent)
    : InstallStandardInstallerApplication(commandLine, list, wizard, parent)
{
    if (wizard) {
        wizard->setPageText(InstallWizardInterface::StartRemovalPage, QStringLiteral("Start Removal"),
            QStringLiteral("<p>To start removal of <b>$(Product)</b>, click <b>Remove</b>.</p>"));
    }
}

BrantleInstallerApplication::~BrantleInstallerApplication() = default;
