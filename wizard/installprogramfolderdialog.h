#pragma once

#include "wizard/installfolderfielddialog.h"

// The program folder for the product's menu entries: ProgramFolderDir and
// ProgramFolderName.
class InstallProgramFolderDialog : public InstallFolderFieldDialog
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallProgramFolderDialog)

public:
    explicit InstallProgramFolderDialog(QWidget *parent = nullptr);
    ~InstallProgramFolderDialog() override;
};
