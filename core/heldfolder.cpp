#include "core/heldfolder.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const int FolderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// As many links as the kernel follows in one path.
const int MaxLinks = 40;

std::deque<QByteArray> components(const QByteArray &path)
{
    std::deque<QByteArray> parts;
    for (const QByteArray &part : path.split('/')) {
        if (!part.isEmpty() && part != ".")
            parts.push_back(part);
    }
    return parts;
}

// The folder name inside parent, made first when asked for. Another writer
// may make it at the same moment; that is no failure.
int openFolderAt(int parent, const QByteArray &name, HeldFolder::Creation creation)
{
    int fd = ::openat(parent, name.constData(), FolderFlags);
    if (fd < 0 && errno == ENOENT && creation == HeldFolder::Create) {
        if (::mkdirat(parent, name.constData(), 0777) == 0 || errno == EEXIST)
            fd = ::openat(parent, name.constData(), FolderFlags);
    }
    // A link tells itself apart from a file in the way, for the caller's message.
    struct stat status;
    if (fd < 0 && errno == ENOTDIR && ::fstatat(parent, name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0
        && S_ISLNK(status.st_mode))
        errno = ELOOP;
    return fd;
}

// The target of the link name inside parent when root or the running user
// owns it; an empty result (errno set) otherwise. The link is opened itself
// and read through its descriptor, so the link checked is the link read.
QByteArray trustedLinkTarget(int parent, const QByteArray &name)
{
    const Descriptor link(::openat(parent, name.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (link.get() < 0 || ::fstat(link.get(), &status) != 0)
        return QByteArray();
    if (!S_ISLNK(status.st_mode)) {
        errno = ENOTDIR; // swapped back meanwhile
        return QByteArray();
    }
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        errno = ELOOP;
        return QByteArray();
    }
    QByteArray target(PATH_MAX, Qt::Uninitialized);
    const ssize_t length = ::readlinkat(link.get(), "", target.data(), size_t(target.size()));
    if (length <= 0 || length >= target.size()) {
        errno = ELOOP;
        return QByteArray();
    }
    target.truncate(length);
    return target;
}

} // namespace

HeldFolder::HeldFolder(int fd, const QString &path)
    : m_fd(fd)
    , m_path(path)
{ }

HeldFolder HeldFolder::open(const QString &path, Creation creation, EndLink endLink)
{
    const QString absolute
        = QDir::cleanPath(QDir::isAbsolutePath(path) ? path : QDir::current().absoluteFilePath(path));
    Descriptor current(::open("/", FolderFlags));
    std::deque<QByteArray> pending = components(QFile::encodeName(absolute));
    int links = 0;
    while (current.get() >= 0 && !pending.empty()) {
        const QByteArray name = pending.front();
        pending.pop_front();
        const int fd = openFolderAt(current.get(), name, creation);
        if (fd >= 0) {
            current.reset(fd);
            continue;
        }
        if (errno != ELOOP || ++links > MaxLinks || (pending.empty() && endLink == RefuseLink))
            return HeldFolder();
        const QByteArray target = trustedLinkTarget(current.get(), name);
        if (target.isEmpty())
            return HeldFolder();
        std::deque<QByteArray> rest = components(target);
        rest.insert(rest.end(), pending.begin(), pending.end());
        pending.swap(rest);
        if (target.startsWith('/'))
            current.reset(::open("/", FolderFlags));
    }
    if (current.get() < 0)
        return HeldFolder();
    return HeldFolder(current.release(), absolute);
}

HeldFolder HeldFolder::below(const QString &relative, Creation creation) const
{
    if (!isValid()) {
        errno = EBADF;
        return HeldFolder();
    }
    const QByteArray encoded = QFile::encodeName(relative);
    Descriptor current(::fcntl(fd(), F_DUPFD_CLOEXEC, 0));
    int parent = current.get();
    for (const QByteArray &name : components(encoded)) {
        if (name == "..") {
            errno = EINVAL;
            return HeldFolder();
        }
        current.reset(openFolderAt(parent, name, creation));
        if (current.get() < 0)
            return HeldFolder();
        parent = current.get();
    }
    return HeldFolder(current.release(), m_path + QLatin1Char('/') + relative);
}
