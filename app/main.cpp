#include "installer/installwizardfactory.h"
#include "installer/licencedocument.h"
#include "installer/processentry.h"
#include "wizard/installstandardwizard.h"
#include "wizard/wizardresources.h"

#include <QApplication>
#include <QIcon>

namespace {

// The only place that sees both the installer and the wizard: the process
// entry asks it for the window when the run has one.
class WidgetWizardFactory : public InstallWizardFactory
{
public:
    std::unique_ptr<QCoreApplication> createApplication(int &argc, char **argv) override
    {
        auto application = std::make_unique<QApplication>(argc, argv);
        QApplication::setWindowIcon(QIcon(WizardResources::headerImage()));
        return application;
    }

    std::unique_ptr<InstallWizardInterface> createWizard(
        InstallConfigurationList *list, InstallMode::Mode mode) override
    {
        InstallStandardWizard::Options options;
        options.licenseDocument = LicenceDocument::bytes();
        options.mode = mode;
        return std::make_unique<InstallStandardWizard>(list, options);
    }
};

} // namespace

int main(int argc, char *argv[])
{
    ProcessEntry entry(argc, argv);
    const int status = entry.runConsoleModes();
    if (status != ProcessEntry::GoOn)
        return status;

    entry.prepareInstaller();
    WidgetWizardFactory factory;
    const int result = entry.runInstaller(factory);
    if (result == ProcessEntry::HandedOver)
        return 0;
    entry.finish(result);
}
