#pragma once

#include "wizard/installmodechoicedialog.h"

// Maintenance of an existing installation: Modify, Repair or Remove.
class InstallMaintenanceDialog : public InstallModeChoiceDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallMaintenanceDialog)

public:
    explicit InstallMaintenanceDialog(InstallMode::Mode mode, QWidget *parent = nullptr);
    ~InstallMaintenanceDialog() override;
};
