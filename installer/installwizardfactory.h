#pragma once

#include "core/installmode.h"

#include <QCoreApplication>

#include <memory>

class InstallConfigurationList;
class InstallWizardInterface;

// How the process entry gets a window without seeing a widget: the program
// that links the wizard implements it. Called only for runs with a window,
// and only once a display has been found to answer.
class InstallWizardFactory
{
public:
    virtual ~InstallWizardFactory() = default;

    // The widget application object, with the application's window icon.
    virtual std::unique_ptr<QCoreApplication> createApplication(int &argc, char **argv) = 0;
    // The wizard with every page, showing the plan; created after the
    // application object and the list, destroyed before them.
    virtual std::unique_ptr<InstallWizardInterface> createWizard(
        InstallConfigurationList *list, InstallMode::Mode mode)
        = 0;
};
