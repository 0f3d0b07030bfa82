#include "wizard/installoptionaldialog.h"

InstallOptionalDialog::InstallOptionalDialog(
    InstallConfigurationList *list, const Filter &filter, QWidget *parent)
    : InstallItemSelectionDialog(QStringLiteral("Additional Components"),
        QStringLiteral("Select the additional components to install."),
        QStringLiteral("The installer can install the following additional components.<p>Select required "
                       "components, then click Next to continue."),
        list, filter, QStringLiteral("Install "), QString(), parent)
{ }

InstallOptionalDialog::~InstallOptionalDialog() = default;
