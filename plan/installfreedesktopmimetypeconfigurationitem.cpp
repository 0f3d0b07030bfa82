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
#include <QXmlStreamWriter>

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
    QByteArray package;
    QXmlStreamWriter xml(&package);
    xml.setAutoFormatting(true);
    xml.setAutoFormattingIndent(2);
    xml.writeStartDocument();
    xml.writeDefaultNamespace(QStringLiteral("http://www.freedesktop.org/standards/shared-mime-info"));
    xml.writeStartElement(QStringLiteral("mime-info"));
    xml.writeStartElement(QStringLiteral("mime-type"));
    xml.writeAttribute(QStringLiteral("type"), m_mimeType);
    if (!m_parentType.isEmpty()) {
        xml.writeEmptyElement(QStringLiteral("sub-class-of"));
        xml.writeAttribute(QStringLiteral("type"), m_parentType);
    }
    xml.writeTextElement(QStringLiteral("comment"), m_comment);
    xml.writeEmptyElement(QStringLiteral("glob"));
    xml.writeAttribute(QStringLiteral("pattern"), QLatin1Char('*') + m_extension);
    xml.writeEndDocument();
    // The file is replaced whole: a link planted in its place is not followed.
    if (!FileUtils::writeFile(packagePath(), package))
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
