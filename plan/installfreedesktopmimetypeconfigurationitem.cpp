#include "plan/installfreedesktopmimetypeconfigurationitem.h"

#include "core/fileutils.h"
#include "core/installexception.h"
#include "core/macrotable.h"
#include "core/places.h"
#include "plan/desktopcacheupdate.h"
#include "plan/planlogging.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QImage>

InstallFreeDesktopMimeTypeConfigurationItem::InstallFreeDesktopMimeTypeConfigurationItem(quint32 systemWide,
    const QString &mimeType, const QString &comment, const QString &parentType, const QString &extension,
    const QString &icon, InstallConfigurationItem *parent, const QString &title, const QString &description,
    int level, bool visible)
    : InstallConfigurationItem(parent, title, description, level, visible, AllFlags)
    , m_systemWide(systemWide)
    , m_mimeType(mimeType)
    , m_comment(comment)
    , m_parentType(parentType)
    , m_extension(extension)
    , m_icon(icon)
    , m_dataFolder(systemWide == 1 ? Places::systemDataFolder() : Places::userDataFolder())
{ }

QList<int> InstallFreeDesktopMimeTypeConfigurationItem::iconSizes()
{
    return { 256, 128, 64, 48, 32, 24, 16 };
}

QString InstallFreeDesktopMimeTypeConfigurationItem::fileStem() const
{
    QString stem = m_mimeType;
    return stem.replace(QLatin1Char('/'), QLatin1Char('-'));
}

QString InstallFreeDesktopMimeTypeConfigurationItem::packagePath() const
{
    return m_dataFolder + QStringLiteral("/mime/packages/") + fileStem() + QStringLiteral(".xml");
}

QString InstallFreeDesktopMimeTypeConfigurationItem::iconPath(int size) const
{
    return m_dataFolder + QStringLiteral("/icons/hicolor/") + QString::number(size) + QLatin1Char('x')
        + QString::number(size) + QStringLiteral("/mimetypes/") + fileStem() + QStringLiteral(".png");
}

void InstallFreeDesktopMimeTypeConfigurationItem::installAction()
{
    FileUtils::makePath(m_dataFolder + QStringLiteral("/mime/packages"));
    // The values are our own constants; they are written as they are.
    QString package
        = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                         "<mime-info xmlns=\"http://www.freedesktop.org/standards/shared-mime-info\">\n");
    package += QStringLiteral("  <mime-type type=\"") + m_mimeType + QStringLiteral("\">\n");
    if (!m_parentType.isEmpty())
        package += QStringLiteral("    <sub-class-of type=\"") + m_parentType + QStringLiteral("\"/>\n");
    package += QStringLiteral("    <comment>") + m_comment + QStringLiteral("</comment>\n");
    package += QStringLiteral("    <glob pattern=\"*") + m_extension + QStringLiteral("\"/>\n");
    package += QStringLiteral("  </mime-type>\n"
                              "</mime-info>\n");
    // The file is replaced whole: a link planted in its place is not followed.
    if (!FileUtils::writeFile(packagePath(), package.toUtf8()))
        throw InstallException(QStringLiteral("Cannot write Mime type file"));

    writeIcons();

    runDesktopCacheUpdate({ QStringLiteral("gtk-update-icon-cache"), QStringLiteral("-q"),
        m_dataFolder + QStringLiteral("/icons/hicolor") });
    runDesktopCacheUpdate({ QStringLiteral("update-mime-database"), m_dataFolder + QStringLiteral("/mime") });
}

void InstallFreeDesktopMimeTypeConfigurationItem::writeIcons() const
{
    const QString source = expandMacros(m_icon);
    const QImage image(source);
    if (image.isNull()) {
        // The type still works without a picture; say why it has none.
        qCWarning(lcPlan) << "Cannot load icon" << source << "for" << m_mimeType;
        return;
    }
    for (const int size : iconSizes()) {
        const QString path = iconPath(size);
        FileUtils::makePath(path.section(QLatin1Char('/'), 0, -2));
        const QImage scaled = image.scaled(size, size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        if (!scaled.save(&buffer, "PNG", 100) || !FileUtils::writeFile(path, png))
            qCWarning(lcPlan) << "Cannot write icon" << path;
    }
}

InstallFootprints InstallFreeDesktopMimeTypeConfigurationItem::installFootprint() const
{
    const QFileInfo package(packagePath());
    InstallFootprints footprints { { package.absolutePath(), { package.fileName() }, 0 } };
    for (const int size : iconSizes()) {
        const QFileInfo icon(iconPath(size));
        footprints.append({ icon.absolutePath(), { icon.fileName() }, 0 });
    }
    return footprints;
}

void InstallFreeDesktopMimeTypeConfigurationItem::checkInstalledAction()
{
    setInstalled(QFile::exists(packagePath()) ? fullyInstalled : notInstalled);
}
