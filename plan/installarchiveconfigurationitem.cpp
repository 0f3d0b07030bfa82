#include "plan/installarchiveconfigurationitem.h"

#include "core/installexception.h"
#include "core/installlog.h"
#include "core/macrotable.h"
#include "media/installmedia.h"
#include "plan/installconfigurationlist.h"
#include "plan/installfiledeletion.h"

#include <QDir>
#include <QFileInfo>

#include <climits>
#include <vector>

namespace {

// Disconnects when the extraction ends, also when it throws.
class ConnectionGuard
{
public:
    explicit ConnectionGuard(std::initializer_list<QMetaObject::Connection> connections)
        : m_connections(connections)
    { }
    ~ConnectionGuard()
    {
        for (const QMetaObject::Connection &connection : m_connections)
            QObject::disconnect(connection);
    }
    ConnectionGuard(const ConnectionGuard &) = delete;
    ConnectionGuard &operator=(const ConnectionGuard &) = delete;

private:
    std::vector<QMetaObject::Connection> m_connections;
};

} // namespace

InstallArchiveConfigurationItem::InstallArchiveConfigurationItem(InstallConfigurationItem *parent,
    const QString &title, const QString &description, int level, bool visible, quint32 flags,
    const QString &archiveName, const QString &destination, quint32 options)
    : InstallConfigurationItem(parent, title, description, level, visible, flags)
    , m_archiveName(archiveName)
    , m_destination(destination)
    , m_options(options)
{ }

void InstallArchiveConfigurationItem::setFiles(const QStringList &files)
{
    m_files = files;
    m_filesKnown = true;
}

void InstallArchiveConfigurationItem::extractedFile(quint64 bytesExtracted)
{
    m_bytesExtracted += bytesExtracted;
    reportBytes(m_bytesExtracted);
}

void InstallArchiveConfigurationItem::reportBytes(quint64 bytes)
{
    emit progress(int(std::min<quint64>(bytes >> 10, INT_MAX)));
}

void InstallArchiveConfigurationItem::installAction()
{
    if (!(m_options & ExtractOnInstall))
        return;
    InstallConfigurationList *root = list();
    InstallMedia *media = root ? root->media() : nullptr;
    if (!media)
        throw InstallException(QStringLiteral("No installation medium for ") + m_archiveName);

    quint64 totalSize = 0;
    setFiles(media->list(m_archiveName, totalSize));
    emit progress(0);
    announceTotalSteps(qint64(std::min<quint64>(totalSize >> 10, INT_MAX)));

    m_bytesExtracted = 0;
    const QString folder = expandMacros(m_destination);
    QString announced;
    const ConnectionGuard connections {
        connect(media, &InstallMedia::extractingFile, this,
            [&announced](const QString &name) { announced = name; }),
        connect(media, &InstallMedia::extractedFile, this,
            [&] {
                if (InstallLog::isOpen())
                    InstallLog::write(QStringLiteral("written ") + folder + QLatin1Char('/') + announced);
            }),
        connect(media, &InstallMedia::extractedFile, this, &InstallArchiveConfigurationItem::extractedFile),
        connect(media, &InstallMedia::extractedBytes, this,
            [this](quint64 bytesOfFile) { reportBytes(m_bytesExtracted + bytesOfFile); }),
        connect(media, &InstallMedia::extractingFile, this,
            qOverload<const QString &>(&InstallConfigurationItem::progress)),
    };
    QStringList copied = m_files;
    if (const std::optional<QSet<QString>> &intact = root->intactFiles()) {
        const QString prefix = QDir::cleanPath(folder) + QLatin1Char('/');
        copied.removeIf([&](const QString &name) { return intact->contains(prefix + name); });
    }
    media->copyFiles(m_archiveName, copied, folder);
    if (root->intactFiles())
        root->addRewritten(int(copied.size()));
}

void InstallArchiveConfigurationItem::uninstallAction()
{
    if (!(m_options & RemoveOnUninstall))
        return;
    QStringList paths;
    paths.reserve(m_files.size());
    for (const QString &name : std::as_const(m_files))
        paths.append(m_destination + QLatin1Char('/') + name);
    InstallFileDeletion(this).deleteFiles(paths);
}

InstallFootprints InstallArchiveConfigurationItem::installFootprint() const
{
    InstallConfigurationList *root = list();
    InstallMedia *media = root ? root->media() : nullptr;
    if (!(m_options & ExtractOnInstall) || !media)
        return {};
    InstallFootprint footprint { expandMacros(m_destination), {}, 0 };
    footprint.files = media->list(m_archiveName, footprint.bytes);
    return { footprint };
}

InstallFootprints InstallArchiveConfigurationItem::removalFootprint() const
{
    if (!(m_options & RemoveOnUninstall))
        return {};
    return { InstallFootprint::onDisk(expandMacros(m_destination), m_files) };
}

void InstallArchiveConfigurationItem::checkInstalledAction()
{
    const QString destination = expandMacros(m_destination);
    int present = 0;
    for (const QString &name : std::as_const(m_files)) {
        if (QFileInfo::exists(destination + QLatin1Char('/') + name))
            ++present;
    }
    if (present == m_files.size())
        setInstalled(fullyInstalled);
    else if (present == 0)
        setInstalled(notInstalled);
    else
        setInstalled(partiallyInstalled);
}
