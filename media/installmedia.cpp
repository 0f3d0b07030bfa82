#include "media/installmedia.h"

#include "core/installexception.h"
#include "media/installoverwritedecision.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

InstallMedia::InstallMedia(QObject *parent)
    : QObject(parent)
{ }

InstallMedia::~InstallMedia() = default;

bool InstallMedia::shouldCopy(qint64 sourceModified, quint64 sourceSize, const QString &target) const
{
    return !m_decision || m_decision->shouldOverwrite(sourceModified, sourceSize, target);
}

InstallMedia::TargetFolders::TargetFolders(const QString &destination)
    : m_destination(destination)
{ }

std::shared_ptr<HeldFolder> InstallMedia::TargetFolders::folderFor(
    const QString &name, const QString &refusal)
{
    // A name that starts at the root or climbs out is not the medium's to give.
    if (name.startsWith(QLatin1Char('/')) || name.split(QLatin1Char('/')).contains(QStringLiteral("..")))
        throw InstallException(refusal);
    const qsizetype slash = name.lastIndexOf(QLatin1Char('/'));
    const QString folderName = slash < 0 ? QString() : name.left(slash);
    if (m_last && folderName == m_lastName)
        return m_last;
    if (!m_root.isValid())
        m_root = HeldFolder::open(m_destination, HeldFolder::Create, HeldFolder::RefuseLink);
    HeldFolder folder = m_root.isValid() ? m_root.below(folderName, HeldFolder::Create) : HeldFolder();
    if (!folder.isValid()) {
        if (errno == ELOOP)
            throw InstallException(refusal);
        const QString path
            = folderName.isEmpty() ? m_destination : m_destination + QLatin1Char('/') + folderName;
        throw InstallException(QStringLiteral("Cannot create folder ") + QFileInfo(path).absoluteFilePath());
    }
    m_last = std::make_shared<HeldFolder>(std::move(folder));
    m_lastName = folderName;
    // Most folders of an installation are new or hold few files: listing
    // costs a few calls where asking about each file costs a lookup each.
    m_present.clear();
    m_listed = false;
    const int fd = ::openat(m_last->fd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (DIR *listing = fd >= 0 ? ::fdopendir(fd) : nullptr) {
        const struct dirent *entry = nullptr;
        for (errno = 0; (entry = ::readdir(listing)); errno = 0)
            m_present.insert(QByteArray(entry->d_name));
        const bool complete = errno == 0;
        m_listed = ::closedir(listing) == 0 && complete;
    } else if (fd >= 0) {
        ::close(fd);
    }
    return m_last;
}

bool InstallMedia::TargetFolders::taken(const QString &name) const
{
    return !m_listed || m_present.contains(QFile::encodeName(fileName(name)));
}
