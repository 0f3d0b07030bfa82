#include "wizard/installprogramfolderdialog.h"

InstallProgramFolderDialog::InstallProgramFolderDialog(QWidget *parent)
    : InstallFolderFieldDialog(
        QStringLiteral("Setup will add program icons to the Program Folder below.<p>You may "
                       "type a new folder name. Click Next to continue."),
        QStringLiteral("Program Folder"), QStringLiteral("ProgramFolderDir"),
        QStringLiteral("ProgramFolderName"), parent)
{
    setTitle(QStringLiteral("Select Program Folder"));
    setDescription(QStringLiteral("Please select a program folder."));
}

InstallProgramFolderDialog::~InstallProgramFolderDialog() = default;
