#pragma once

#include "wizard/installitemselectiondialog.h"

// Environment-variable items of the plan, each with a check box.
class InstallEnvironmentVariablesDialog : public InstallItemSelectionDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallEnvironmentVariablesDialog)

public:
    InstallEnvironmentVariablesDialog(
        InstallConfigurationList *list, const Filter &filter, QWidget *parent = nullptr);
    ~InstallEnvironmentVariablesDialog() override;
};
