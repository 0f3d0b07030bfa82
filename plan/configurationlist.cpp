#include "plan/configurationlist.h"

#include "core/productinfo.h"
#include "plan/installarchiveconfigurationitem.h"
#include "plan/installfileremovalconfigurationitem.h"
#include "plan/installfreedesktopmimetypeconfigurationitem.h"
#include "plan/installfreedesktopshortcutconfigurationitem.h"
#include "plan/vantordriverinstallconfigurationitem.h"

namespace {

struct ArchiveFolder
{
    const char *title;
    const char *description;
    const char *folder;
};

// Each folder of the medium is extracted into the folder of the same name
// under the destination.
const ArchiveFolder archiveFolders[] = {
    { "Binary Files", "Executable files required to run $(Product)", "bin" },
    { "GCC Files", "Install GCC tools.", "gcc" },
    { "Help Files", "$(Product) help files", "html" },
    { "Include Files", "$(Product) include files", "include" },
    { "Library Files", "$(Product) library files", "lib" },
    { "LLVM Files", "Install LLVM tools", "llvm" },
    { "Sample Files", "$(Product) sample project and source files", "samples" },
    { "Tamrin-RTL Files", "$(Product) Tamrin-RTL files", "tamrin-rtl" },
    { "Source Files", "$(Product) source files", "source" },
    { "Target Definition Files", "$(Product) target definition files", "targets" },
};

struct FileType
{
    const char *extension;
    const char *mimeType;
    const char *comment;
};

const FileType fileTypes[] = {
    { ".qzProject", "application/x-tamrin-qzproject", "Tamrin Calvra Project File" },
    { ".qzPackage", "application/x-tamrin-qzpackage", "Tamrin Calvra Package File" },
    { ".qzArchive", "application/x-tamrin-qzarchive", "Tamrin Calvra Archive File" },
};

} // namespace

ConfigurationList::ConfigurationList(bool systemWide)
{
    // A user-mode installation may not write the system's data folder, so its
    // menu entry and file types go to the invoking user's own.
    const quint32 desktopScope = systemWide ? 1 : 0;

    auto *product = new InstallConfigurationItem(this, QStringLiteral("$(Product) $(Version)"),
        QStringLiteral("$(Product) $(Version) Installation"), 0, true, AllFlags);

    for (const ArchiveFolder &archive : archiveFolders) {
        const QString folder = QLatin1String(archive.folder);
        new InstallArchiveConfigurationItem(product, QLatin1String(archive.title),
            QLatin1String(archive.description), 0, true, AllFlags, folder,
            QStringLiteral("$(DestDir)/") + folder,
            InstallArchiveConfigurationItem::ExtractOnInstall
                | InstallArchiveConfigurationItem::RemoveOnUninstall);
    }

    new VantorDriverInstallConfigurationItem(product);

    for (const FileType &type : fileTypes) {
        const QString extension = QLatin1String(type.extension);
        new InstallFreeDesktopMimeTypeConfigurationItem(desktopScope, QLatin1String(type.mimeType),
            QLatin1String(type.comment), QStringLiteral("text/xml"), extension,
            QStringLiteral("$(DestDir)/bin/FileIcon.png"), product, extension + QStringLiteral(" Mime Type"),
            QStringLiteral("Install ") + extension + QStringLiteral(" file Mime type"), 0, false);
    }

    new InstallFreeDesktopShortcutConfigurationItem(desktopScope, QStringLiteral("$(Company)"),
        ProductInfo::productName() + QStringLiteral(" $(Version)"), QStringLiteral("$(DestDir)/bin/Quilmor"),
        QStringLiteral("$(DestDir)/bin/StudioIcon.png"), false, true,
        QStringLiteral("Development;X-MandrivaLinux-MoreApplications-Development;"),
        QStringLiteral("application/x-tamrin-qzproject;application/x-tamrin-qzpackage;"
                       "application/x-tamrin-qzarchive;"),
        product, QStringLiteral("Quilmor Shortcut"), QStringLiteral("Install shortcut for Quilmor"), 0,
        false);

    // The product writes this index after installation; it is not on the
    // medium, and the help folder cannot go while it is there.
    auto *fileRemover = new InstallFileRemovalConfigurationItem(
        product, QStringLiteral("File Remover"), QString(), 0, false);
    fileRemover->addFile(QStringLiteral("$(DestDir)/html/contents.bin"));
}
