#include "wizard/installenvironmentvariablesdialog.h"

InstallEnvironmentVariablesDialog::InstallEnvironmentVariablesDialog(
    InstallConfigurationList *list, const Filter &filter, QWidget *parent)
    : InstallItemSelectionDialog(QStringLiteral("Update Environment Variables"),
        QStringLiteral("Select the environment variables that you want to update."),
        QStringLiteral("The installer can update the following environment variables in order to run "
                       "$(Product) $(Version).<p>Select the environment variables you want to update, then "
                       "click Next to continue."),
        list, filter, QStringLiteral("Update "), QString(), parent)
{ }

InstallEnvironmentVariablesDialog::~InstallEnvironmentVariablesDialog() = default;
