#pragma once

#include "wizard/installtextdialog.h"

// How to move through the installer.
class InstallHelpDialog : public InstallTextDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallHelpDialog)

public:
    explicit InstallHelpDialog(QWidget *parent = nullptr);
    ~InstallHelpDialog() override;
};
