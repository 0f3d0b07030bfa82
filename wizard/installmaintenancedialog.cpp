#include "wizard/installmaintenancedialog.h"

InstallMaintenanceDialog::InstallMaintenanceDialog(InstallMode::Mode mode, QWidget *parent)
    : InstallModeChoiceDialog(QString(), parent)
{
    setTitle(QStringLiteral("Program Maintenance"));
    setDescription(QStringLiteral("Modify, repair or remove the program."));
    addChoice(InstallMode::Modify, QStringLiteral("Modify"),
        QStringLiteral("Change which program features are installed.")
            + QStringLiteral("<p>This option displays the Custom Selection dialog in which you can change "
                             "the way features are installed."));
    addChoice(InstallMode::Repair, QStringLiteral("Repair"),
        QStringLiteral("Repair errors in the program.")
            + QStringLiteral(
                "<p>This option fixes missing or corrupt files, shortcuts, and registry entries."));
    addChoice(InstallMode::Remove, QStringLiteral("Remove"),
        QStringLiteral("Remove $(Product) from your computer."));
    installationModeChanged(mode);
}

InstallMaintenanceDialog::~InstallMaintenanceDialog() = default;
