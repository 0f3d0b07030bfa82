#pragma once

#include "plan/installconfigurationitem.h"

// Writes the product's menu entry: a freedesktop.org desktop entry file in
// "/usr/share/applications" (system-wide) or "$HOME/.local/share/applications"
// (per user), then refreshes the desktop database there. The file is named
// after the vendor and the name when the item is built.
class InstallFreeDesktopShortcutConfigurationItem : public InstallConfigurationItem
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallFreeDesktopShortcutConfigurationItem)

public:
    // systemWide is 1 for the system data folder, anything else for the
    // user's. exec and icon may hold macros; they are expanded when the file
    // is written. categories and mimeTypes are ";"-separated with a trailing
    // ";"; empty categories hide the entry from menus.
    InstallFreeDesktopShortcutConfigurationItem(quint32 systemWide, const QString &vendor,
        const QString &name, const QString &exec, const QString &icon, bool terminal, bool startupNotify,
        const QString &categories, const QString &mimeTypes, InstallConfigurationItem *parent,
        const QString &title, const QString &description, int level, bool visible);

    quint32 systemWide() const { return m_systemWide; }
    // "/usr/share" for systemWide 1, else "$HOME/.local/share".
    QString dataFolder() const { return m_dataFolder; }
    QString shortcutPath() const { return m_shortcutPath; }
    // The menu entry; its size is not known before it is made.
    InstallFootprints installFootprint() const override;
    InstallFootprints removalFootprint() const override;
    QString name() const { return m_name; }
    QString exec() const { return m_exec; }
    QString icon() const { return m_icon; }
    bool terminal() const { return m_terminal; }
    bool startupNotify() const { return m_startupNotify; }
    QString categories() const { return m_categories; }
    QString mimeTypes() const { return m_mimeTypes; }

protected:
    void installAction() override;
    void uninstallAction() override;
    void checkInstalledAction() override;

private:
    QString applicationsFolder() const;
    void updateDesktopDatabase() const;

    quint32 m_systemWide;
    // Decided with the file name at construction, so that the item writes,
    // checks and removes the same file whatever HOME becomes later.
    QString m_dataFolder;
    QString m_shortcutPath;
    QString m_name;
    QString m_exec;
    QString m_icon;
    bool m_terminal;
    bool m_startupNotify;
    QString m_categories;
    QString m_mimeTypes;
};
