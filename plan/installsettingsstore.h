#pragma once

#include <QSettings>
#include <QString>

#include <memory>

// The installer's own settings, where a later run (or the product) finds an
// earlier installation: an INI file in the invoking user's
// "$(HomeDir)/.config/$(ProductRegKey)" folder, the folder the process hands
// back to the sudo user. Opening it selects a key (a "/"-separated group path
// such as "Tamrin/Tamrin Calvra for ARM/Installer/5.50a"); values are read,
// written and removed under that key. Destroying the store releases it and
// writes any change to disk. User-interface thread only.
class InstallSettingsStore
{
public:
    // key is used as it is; callers expand its macros first.
    explicit InstallSettingsStore(const QString &key);
    ~InstallSettingsStore();
    InstallSettingsStore(const InstallSettingsStore &) = delete;
    InstallSettingsStore &operator=(const InstallSettingsStore &) = delete;

    // The empty text when the value is not there.
    QString value(const QString &name) const;
    void setValue(const QString &name, const QString &value);
    // Removing a value that is not there does nothing.
    void remove(const QString &name);

    // Writes pending changes; false when the file could not be written.
    bool sync();

    // The expansion of "$(HomeDir)/.config/$(ProductRegKey)/Installer.conf".
    static QString filePath();

private:
    std::unique_ptr<QSettings> m_settings;
};
