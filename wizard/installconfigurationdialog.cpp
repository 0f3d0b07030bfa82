#include "wizard/installconfigurationdialog.h"

InstallConfigurationDialog::InstallConfigurationDialog(InstallMode::Mode mode, QWidget *parent)
    : InstallModeChoiceDialog(QStringLiteral("Configuration"), parent)
{
    setTitle(QStringLiteral("Choose Configuration"));
    setDescription(QStringLiteral("Select the type of installation to carry out."));
    addChoice(InstallMode::Minimal, QStringLiteral("Minimal"),
        QStringLiteral("Install the minimum number of files required for installation"));
    addChoice(InstallMode::Typical, QStringLiteral("Typical"),
        QStringLiteral("Install all the files required for most users"));
    addChoice(InstallMode::Full, QStringLiteral("Full"), QStringLiteral("Install all files"));
    addChoice(InstallMode::Custom, QStringLiteral("Custom"),
        QStringLiteral("Manually select the files to install"));
    installationModeChanged(mode);
}

InstallConfigurationDialog::~InstallConfigurationDialog() = default;
