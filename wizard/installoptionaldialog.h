#pragma once

#include "wizard/installitemselectiondialog.h"

// Additional components of the plan, each with a check box.
class InstallOptionalDialog : public InstallItemSelectionDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallOptionalDialog)

public:
    InstallOptionalDialog(InstallConfigurationList *list, const Filter &filter, QWidget *parent = nullptr);
    ~InstallOptionalDialog() override;
};
