#pragma once

#include "plan/installconfigurationitem.h"

#include <QList>

// Registers one file type with the desktop: a shared MIME-info package in
// "<data>/mime/packages" and the type's icon at every size of the hicolor
// theme, then refreshes the icon cache and the MIME database. The data folder
// is "/usr/share" (system-wide) or "$HOME/.local/share". Removing the product
// leaves the type registered: other programs may have come to rely on it.
class InstallFreeDesktopMimeTypeConfigurationItem : public InstallConfigurationItem
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallFreeDesktopMimeTypeConfigurationItem)

public:
    // parentType may be empty; extension starts with "."; icon may hold macros.
    InstallFreeDesktopMimeTypeConfigurationItem(quint32 systemWide, const QString &mimeType,
        const QString &comment, const QString &parentType, const QString &extension, const QString &icon,
        InstallConfigurationItem *parent, const QString &title, const QString &description, int level,
        bool visible);

    quint32 systemWide() const { return m_systemWide; }
    QString mimeType() const { return m_mimeType; }
    QString comment() const { return m_comment; }
    QString parentType() const { return m_parentType; }
    QString extension() const { return m_extension; }
    QString icon() const { return m_icon; }

    QString dataFolder() const { return m_dataFolder; }
    QString packagePath() const;
    // Where the icon of the given size goes.
    QString iconPath(int size) const;

    // The icon sizes written, largest first.
    static QList<int> iconSizes();
    // The package and the icons; their sizes are not known before they are
    // made and count as nothing beyond their files.
    InstallFootprints installFootprint() const override;

protected:
    void installAction() override;
    void checkInstalledAction() override;

private:
    // The MIME type as a file name: "application/x-a" becomes "application-x-a".
    QString fileStem() const;
    void writeIcons() const;

    quint32 m_systemWide;
    QString m_mimeType;
    QString m_comment;
    QString m_parentType;
    QString m_extension;
    QString m_icon;
    QString m_dataFolder;
};
