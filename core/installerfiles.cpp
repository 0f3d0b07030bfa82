#include "core/installerfiles.h"

#include "core/places.h"

#include <QFileInfo>

namespace InstallerFiles {

QStringList list()
{
    // Setup runs with $ORIGIN as its run path, so copies of these beside it
    // are the ones it loads. Keep in step with what the executable links.
    const QString directory = QStringLiteral("$(InstallerDir)/");
    return {
        directory + QFileInfo(Places::executablePath()).fileName(),
        directory + QStringLiteral("libQt6Core.so.6"),
        directory + QStringLiteral("libQt6Gui.so.6"),
        directory + QStringLiteral("libQt6Widgets.so.6"),
        directory + QStringLiteral("libQt6Network.so.6"),
        directory + QStringLiteral("libQt6Xml.so.6"),
        directory + QStringLiteral("libQt6DBus.so.6"),
        directory + QStringLiteral("VolUnInstall.exe"),
    };
}

} // namespace InstallerFiles
