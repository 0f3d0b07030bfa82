#include "media/installmedia.h"

#include "core/inprogressfiles.h"
#include "core/installexception.h"
#include "media/installoverwritedecision.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

InstallMedia::InstallMedia(QObject *parent)
    : QObject(parent)
{ }

InstallMedia::~InstallMedia() = default;

void InstallMedia::setInProgressPath(const QString &path)
{
    if (path == m_inProgressPath)
        return;
    m_inProgressPath = path;
    m_inProgress.reset();
}

InProgressFiles *InstallMedia::inProgress()
{
    // Tried again by each copy until it opens: the folder it lives in may
    // be made by the run.
    if (!m_inProgress && !m_inProgressPath.isEmpty())
        m_inProgress = InProgressFiles::open(m_inProgressPath);
    return m_inProgress.get();
}

void InstallMedia::finishInProgress()
{
    if (m_inProgress)
        m_inProgress->finish();
    m_inProgress.reset();
}

bool InstallMedia::shouldCopy(qint64 sourceModified, quint64 sourceSize, const QString &target) const
{
    return !m_decision || m_decision->shouldOverwrite(sourceModified, sourceSize, target);
}

InstallMedia::TargetFolders::TargetFolders(const QString &destination, InProgressFiles *inProgress)
    : m_destination(destination)
    , m_inProgress(inProgress)
{ }

InstallException InstallMedia::copyFailure(const QString &source, const QString &target)
{
    return InstallException(QStringLiteral("Cannot copy file ") + source + QStringLiteral(" to ") + target);
}

namespace {

// Whether name starts at the root or has a ".." component; looked at for
// every file, so without splitting it.
bool climbsOut(const QString &name)
{
    if (name.startsWith(QLatin1Char('/')))
        return true;
    for (qsizetype at = 0; (at = name.indexOf(QLatin1String(".."), at)) >= 0; at += 2) {
        if ((at == 0 || name.at(at - 1) == QLatin1Char('/'))
            && (at + 2 == name.size() || name.at(at + 2) == QLatin1Char('/')))
            return true;
    }
    return false;
}

} // namespace

std::shared_ptr<HeldFolder> InstallMedia::TargetFolders::folderFor(
    const QString &name, const QString &source, const QString &target)
{
    // A name that starts at the root or climbs out is not the medium's to give.
    if (climbsOut(name))
        throw copyFailure(source, target);
    const qsizetype slash = name.lastIndexOf(QLatin1Char('/'));
    if (m_last && QStringView(name).left(qMax<qsizetype>(slash, 0)) == m_lastName)
        return m_last;
    const QString folderName = slash < 0 ? QString() : name.left(slash);
    if (!m_root.isValid())
        m_root = HeldFolder::open(m_destination, HeldFolder::Create, HeldFolder::RefuseLink);
    HeldFolder folder = m_root.isValid() ? m_root.below(folderName, HeldFolder::Create) : HeldFolder();
    if (!folder.isValid()) {
        if (errno == ELOOP)
            throw copyFailure(source, target);
        const QString path
            = folderName.isEmpty() ? m_destination : m_destination + QLatin1Char('/') + folderName;
        throw InstallException(QStringLiteral("Cannot create folder ") + QFileInfo(path).absoluteFilePath());
    }
    m_last = std::make_shared<HeldFolder>(std::move(folder));
    m_lastName = folderName;
    struct stat status;
    const bool known = m_inProgress && ::fstat(m_last->fd(), &status) == 0;
    m_device = known ? status.st_dev : 0;
    m_inode = known ? status.st_ino : 0;
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

bool InstallMedia::TargetFolders::takeUnfinished(const QString &name)
{
    return m_inProgress && m_inode != 0
        && m_inProgress->takeUnfinished(m_device, m_inode, QFile::encodeName(fileName(name)));
}
