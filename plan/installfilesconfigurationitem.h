#pragma once

#include "plan/installconfigurationitem.h"

// Copies a fixed table of single files, such as the installer's own files
// that a later run needs for maintenance. Paths hold macros and are expanded
// when the item acts, so a destination chosen later still applies. Sources
// come from disk, not from the installation medium; a missing source may be
// located by the user.
class InstallFilesConfigurationItem : public InstallConfigurationItem
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallFilesConfigurationItem)

public:
    // One row of the table; a row whose source is null or empty closes it.
    struct Entry
    {
        const char *source;
        const char *destination;
        quint32 flags;
    };
    enum EntryFlag : quint32 {
        // The install action passes the entry over.
        SkipOnInstall = 1,
        // Removing the product keeps the file.
        KeepOnRemove = 2,
    };

    // The table is copied; it need not outlive the item.
    InstallFilesConfigurationItem(InstallConfigurationItem *parent, const QString &title,
        const QString &description, int level, bool visible, quint32 flags, const Entry *table);

    int entryCount() const { return int(m_entries.size()); }
    // Where the files it installs go, expanded.
    QStringList targets() const;

    InstallFootprints installFootprint() const override;
    InstallFootprints removalFootprint() const override;

protected:
    void installAction() override;
    void uninstallAction() override;
    void checkInstalledAction() override;

private:
    struct File
    {
        QString source;
        QString destination;
        quint32 flags;
    };

    // The expanded source, or where the user located it; throws
    // InstallException when it cannot be found.
    QString findSource(const QString &source) const;

    QList<File> m_entries;
};
