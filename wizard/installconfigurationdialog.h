#pragma once

#include "wizard/installmodechoicedialog.h"

// The installation type: Minimal, Typical, Full or Custom.
class InstallConfigurationDialog : public InstallModeChoiceDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallConfigurationDialog)

public:
    explicit InstallConfigurationDialog(InstallMode::Mode mode, QWidget *parent = nullptr);
    ~InstallConfigurationDialog() override;
};
