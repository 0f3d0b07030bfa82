#include "plan/installsettingkeyconfigurationitem.h"

#include "core/macrotable.h"
#include "plan/installsettingsstore.h"

InstallSettingKeyConfigurationItem::InstallSettingKeyConfigurationItem(const QString &key,
    InstallConfigurationItem *parent, const QString &title, const QString &description, int level,
    bool visible)
    : InstallConfigurationItem(parent, title, description, level, visible, AllFlags)
    , m_key(key)
{ }

void InstallSettingKeyConfigurationItem::addValue(const QString &name)
{
    m_values.append(name);
}

bool InstallSettingKeyConfigurationItem::recordValues() const
{
    InstallSettingsStore store(expandMacros(m_key), InstallSettingsStore::Writing);
    for (const QString &name : m_values)
        store.setValue(name, expandMacros(QStringLiteral("$(") + name + QLatin1Char(')')));
    return store.sync();
}

void InstallSettingKeyConfigurationItem::uninstallAction()
{
    InstallSettingsStore store(expandMacros(m_key), InstallSettingsStore::Writing);
    for (const QString &name : std::as_const(m_values))
        store.remove(name);
}

void InstallSettingKeyConfigurationItem::checkInstalledAction()
{
    const InstallSettingsStore store(expandMacros(m_key));
    int present = 0;
    // An empty value counts as missing, as it would for the product.
    for (const QString &name : std::as_const(m_values)) {
        if (!store.value(name).isEmpty())
            ++present;
    }
    if (present == m_values.size())
        setInstalled(fullyInstalled);
    else if (present == 0)
        setInstalled(notInstalled);
    else
        setInstalled(partiallyInstalled);
}
