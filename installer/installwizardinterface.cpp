#include "installer/installwizardinterface.h"

InstallWizardInterface::InstallWizardInterface(QObject *parent)
    : QObject(parent)
{ }

InstallWizardInterface::~InstallWizardInterface() = default;
