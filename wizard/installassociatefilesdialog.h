#pragma once

#include "wizard/installitemselectiondialog.h"

// File-association items of the plan, each with a check box.
class InstallAssociateFilesDialog : public InstallItemSelectionDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallAssociateFilesDialog)

public:
    InstallAssociateFilesDialog(
        InstallConfigurationList *list, const Filter &filter, QWidget *parent = nullptr);
    ~InstallAssociateFilesDialog() override;
};
