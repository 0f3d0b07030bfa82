#include "wizard/installhelpdialog.h"

InstallHelpDialog::InstallHelpDialog(QWidget *parent)
    : InstallTextDialog(QStringLiteral("Help"),
        QStringLiteral("<b>Setwright</b><p>")
            + QStringLiteral("The installer will allow you to install, modify, repair or remove $(Product).")
            + QStringLiteral(
                "<p>Click Next to step through each installer stage, click Back to move to the previous "
                "installer stage and click Cancel to terminate the installation."),
        QStringLiteral("&Next>"), 0, parent)
{ }

InstallHelpDialog::~InstallHelpDialog() = default;
