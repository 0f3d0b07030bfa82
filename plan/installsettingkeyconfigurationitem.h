#pragma once

#include "plan/installconfigurationitem.h"

#include <QStringList>

// Owns a key of the installer's settings store and a list of value names
// under it. Each value is named after a macro ("DestDir", "SrcDir", ...) and
// holds that macro's expansion; the application writes them with
// recordValues() when it records the installation. Removing the product
// removes them, so that a later run finds no installation there; the check
// counts them. Installs nothing itself.
class InstallSettingKeyConfigurationItem : public InstallConfigurationItem
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallSettingKeyConfigurationItem)

public:
    // key may hold macros, for example "$(ProductRegKey)/Installer/$(Version)$(AltArch)".
    InstallSettingKeyConfigurationItem(const QString &key, InstallConfigurationItem *parent,
        const QString &title, const QString &description, int level, bool visible);

    void addValue(const QString &name);

    QString key() const { return m_key; }
    QStringList values() const { return m_values; }

    // Stores every value as the expansion of the macro of the same name.
    // False when the store could not be written; HException when it may not
    // be opened at all (see InstallSettingsStore).
    bool recordValues() const;

protected:
    void uninstallAction() override;
    void checkInstalledAction() override;

private:
    QString m_key;
    QStringList m_values;
};
