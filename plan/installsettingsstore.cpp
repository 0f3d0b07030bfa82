#include "plan/installsettingsstore.h"

#include "core/macrotable.h"

InstallSettingsStore::InstallSettingsStore(const QString &key)
    : m_settings(std::make_unique<QSettings>(filePath(), QSettings::IniFormat))
{
    m_settings->beginGroup(key);
}

InstallSettingsStore::~InstallSettingsStore()
{
    m_settings->sync();
}

QString InstallSettingsStore::filePath()
{
    return expandMacros(QStringLiteral("$(HomeDir)/.config/$(ProductRegKey)/Installer.conf"));
}

QString InstallSettingsStore::value(const QString &name) const
{
    return m_settings->value(name, QString()).toString();
}

void InstallSettingsStore::setValue(const QString &name, const QString &value)
{
    m_settings->setValue(name, value);
}

void InstallSettingsStore::remove(const QString &name)
{
    m_settings->remove(name);
}

bool InstallSettingsStore::sync()
{
    m_settings->sync();
    return m_settings->status() == QSettings::NoError;
}
