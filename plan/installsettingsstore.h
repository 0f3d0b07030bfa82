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
// The folders on the way to the file are opened one below the other, as root
// never through a link, and the file must be a regular file (a link in its
// place is removed) before the settings library touches it; otherwise the
// store cannot be opened (HException naming the file).
class InstallSettingsStore
{
public:
    // Writing makes missing folders on the way; a store that changes values
    // must be opened for it.
    enum Use { Reading, Writing };

    // key is used as it is; callers expand its macros first.
    explicit InstallSettingsStore(const QString &key, Use use = Reading);
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
    // Why a store could not be opened now, or the empty text; changes nothing.
    static QString checkFile();

private:
    enum Access { Check, Read, Write };
    static QString refusal(Access access);

    std::unique_ptr<QSettings> m_settings;
};
