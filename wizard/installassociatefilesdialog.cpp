#include "wizard/installassociatefilesdialog.h"

InstallAssociateFilesDialog::InstallAssociateFilesDialog(
    InstallConfigurationList *list, const Filter &filter, QWidget *parent)
    : InstallItemSelectionDialog(QStringLiteral("Associate Files"),
        QStringLiteral("Select the file types you want to associate with $(Product)."),
        QStringLiteral("The installer can associate the following file types with $(Product) "
                       "$(Version).<p>Select the files you want associate, then click Next to continue."),
        list, filter, QString(), QStringLiteral(" Files"), parent)
{ }

InstallAssociateFilesDialog::~InstallAssociateFilesDialog() = default;
