#include "installer/installmodetexts.h"

#include "core/installmode.h"

const InstallModeTexts &InstallModeTexts::of(int mode)
{
    static const InstallModeTexts installation { QStringLiteral("Install Complete"),
        QStringLiteral("Installation Failed"),
        QStringLiteral("$(Product) $(Version) has now been installed."),
        QStringLiteral("$(Product) $(Version) has not been installed."),
        QStringLiteral("Installation has been cancelled by user."),
        QStringLiteral("The installation is not complete"),
        QStringLiteral("Setup has not installed $(Product).") };
    static const InstallModeTexts modify { QStringLiteral("Modify Complete"), QStringLiteral("Modify Failed"),
        QStringLiteral("The $(Product) $(Version) installation has now been modified."),
        QStringLiteral("$(Product) $(Version) has not been modified successfully."),
        QStringLiteral("Modify has been cancelled by user."),
        QStringLiteral("The installation modify is not complete"),
        QStringLiteral("Setup has not modified $(Product).") };
    // A repair reports its outcome in an installation's words.
    static const InstallModeTexts repair { QStringLiteral("Repair Complete"), QStringLiteral("Repair Failed"),
        installation.success, installation.failure, QStringLiteral("Repair has been cancelled by user."),
        QStringLiteral("The installation repair is not complete"),
        QStringLiteral("Setup has not repaired $(Product).") };
    // "had", as it has always read.
    static const InstallModeTexts remove { QStringLiteral("Uninstall Complete"),
        QStringLiteral("Uninstall Failed"), QStringLiteral("$(Product) $(Version) had now been uninstalled."),
        QStringLiteral("$(Product) $(Version) has not been uninstalled."),
        QStringLiteral("Uninstall has been cancelled by user."),
        QStringLiteral("The installation removal is not complete"),
        QStringLiteral("Setup has not removed $(Product).") };
    // An upgrade asks about a Cancel as an installation does.
    static const InstallModeTexts upgrade { QStringLiteral("Upgrade Complete"),
        QStringLiteral("Upgrade Failed"), QStringLiteral("$(Product) $(Version) has now been upgraded."),
        QStringLiteral("$(Product) $(Version) has not been upgraded."),
        QStringLiteral("Upgrade has been cancelled by user."), installation.cancelTitle,
        installation.cancelLead };
    switch (mode) {
    case InstallMode::Modify:
        return modify;
    case InstallMode::Repair:
        return repair;
    case InstallMode::Remove:
        return remove;
    case InstallMode::Upgrade:
        return upgrade;
    }
    return installation;
}
