#pragma once

#include "plan/installconfigurationitem.h"

// Installs the udev rules file of the Vantor debug probe, so that ordinary
// users may open the probe. An optional component whose level is read from the
// system when the item is built: 4 when the rules folder exists without the
// file, otherwise 3. The file is never removed: other installations of the
// maker's tools share it.
class VantorDriverInstallConfigurationItem : public InstallConfigurationItem
{
    Q_OBJECT
    Q_DISABLE_COPY(VantorDriverInstallConfigurationItem)

public:
    explicit VantorDriverInstallConfigurationItem(InstallConfigurationItem *parent);

    static QString rulesFolder() { return QStringLiteral("/etc/udev/rules.d"); }
    static QString rulesFileName() { return QStringLiteral("99-vantor.rules"); }
    InstallFootprints installFootprint() const override;

protected:
    void installAction() override;

private:
    static int levelFromSystem();
};
