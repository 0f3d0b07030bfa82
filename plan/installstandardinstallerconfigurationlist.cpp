#include "plan/installstandardinstallerconfigurationlist.h"

#include "plan/installfileremovalconfigurationitem.h"
#include "plan/installfilesconfigurationitem.h"
#include "plan/installsettingkeyconfigurationitem.h"

namespace {

// The installer and the Qt libraries it links. Setup runs with the run path
// $ORIGIN, so the copies beside "uninstall" are the ones it loads; keep the
// list in step with what the executable links (ldd).
const InstallFilesConfigurationItem::Entry installerFiles[] = {
    { "$(SrcDir)/Setup", "$(InstallerDir)/uninstall", 0 },
    { "$(SrcDir)/libQt6Core.so.6", "$(InstallerDir)/libQt6Core.so.6", 0 },
    { "$(SrcDir)/libQt6Gui.so.6", "$(InstallerDir)/libQt6Gui.so.6", 0 },
    { "$(SrcDir)/libQt6Widgets.so.6", "$(InstallerDir)/libQt6Widgets.so.6", 0 },
    { "$(SrcDir)/libQt6Network.so.6", "$(InstallerDir)/libQt6Network.so.6", 0 },
    { "$(SrcDir)/libQt6Xml.so.6", "$(InstallerDir)/libQt6Xml.so.6", 0 },
    { "$(SrcDir)/libQt6DBus.so.6", "$(InstallerDir)/libQt6DBus.so.6", 0 },
    { "$(SrcDir)/libQt6XcbQpa.so.6", "$(InstallerDir)/libQt6XcbQpa.so.6", 0 },
    { nullptr, nullptr, 0 },
};

} // namespace

InstallStandardInstallerConfigurationList::InstallStandardInstallerConfigurationList()
    : InstallConfigurationList(QStringLiteral("Install Configuration List"), QString(), 0, true)
{
    new InstallFilesConfigurationItem(
        this, QStringLiteral("Installer"), QString(), 0, false, AllFlags, installerFiles);

    auto *recordRemover = new InstallFileRemovalConfigurationItem(
        this, QStringLiteral("System File Remover"), QString(), 0, false);
    recordRemover->addFile(QStringLiteral("$(InstallerDir)/IConf.xml"));
    recordRemover->addFile(QStringLiteral("$(InstallerDir)/manifest.sha256"));
    recordRemover->addFile(QStringLiteral("$(InstallerDir)/files-in-progress"));

    auto *settingKey = new InstallSettingKeyConfigurationItem(
        QStringLiteral("$(ProductRegKey)/Installer/$(Version)$(AltArch)"), this,
        QStringLiteral("Installer Settings"), QString(), 0, false);
    settingKey->addValue(QStringLiteral("DestDir"));
    settingKey->addValue(QStringLiteral("SrcDir"));
    settingKey->addValue(QStringLiteral("ProgramFolderDir"));
}
