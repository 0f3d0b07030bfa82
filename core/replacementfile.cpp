#include "core/replacementfile.h"

#include "core/fileutils.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

ReplacementFile::ReplacementFile(int folderFd, const QByteArray &name, mode_t mode, Placement placement)
    : m_folder(folderFd)
    , m_target(name)
{
    // A folder standing at the name is not looked for here, which would cost
    // every file a lookup: the rename that would replace it fails instead.
    mode &= 0777;
    if (placement == AtNameWhereFree) {
        // Whatever stands at the name, even a link, makes this fail: then
        // the file is written unnamed like any other.
        m_fd.reset(
            ::openat(m_folder, name.constData(), O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, mode));
        m_atName = m_fd.get() >= 0;
        if (m_atName)
            return;
    }
    m_fd.reset(::openat(m_folder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    if (m_fd.get() >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
        return;
    // File systems without unnamed files get a named one, made exclusively.
    static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    const QByteArray base = "." + (m_target.size() > 200 ? QByteArray() : m_target) + ".";
    for (int attempt = 0; attempt < 100 && m_fd.get() < 0; ++attempt) {
        QByteArray name = base;
        for (int i = 0; i < 6; ++i)
            name += letters[std::rand() % (sizeof letters - 1)];
        m_fd.reset(
            ::openat(m_folder, name.constData(), O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, mode));
        if (m_fd.get() >= 0)
            m_named = name;
        else if (errno != EEXIST)
            return;
    }
}

ReplacementFile::~ReplacementFile()
{
    if (m_atName)
        removeAtName();
    if (!m_named.isEmpty())
        ::unlinkat(m_folder, m_named.constData(), 0);
}

const struct stat *ReplacementFile::status()
{
    if (!m_statusKnown && isOpen())
        m_statusKnown = ::fstat(m_fd.get(), &m_status) == 0;
    return m_statusKnown ? &m_status : nullptr;
}

void ReplacementFile::removeAtName()
{
    // Only the file this made: one put at the name meanwhile stays.
    const struct stat *own = status();
    struct stat there;
    if (own && ::fstatat(m_folder, m_target.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0
        && own->st_dev == there.st_dev && own->st_ino == there.st_ino)
        ::unlinkat(m_folder, m_target.constData(), 0);
    m_atName = false;
}

bool ReplacementFile::linkUnder(const QByteArray &name)
{
    // Linking a descriptor by itself needs a capability that root has; the
    // process's own descriptor folder serves everyone else.
    if (::linkat(m_fd.get(), "", m_folder, name.constData(), AT_EMPTY_PATH) == 0)
        return true;
    if (errno == EEXIST)
        return false;
    const QByteArray self = "/proc/self/fd/" + QByteArray::number(m_fd.get());
    return ::linkat(AT_FDCWD, self.constData(), m_folder, name.constData(), AT_SYMLINK_FOLLOW) == 0;
}

ReplacementFile::Outcome ReplacementFile::commit()
{
    if (!isOpen())
        return Failed;
    if (m_atName) {
        // A close that fails may have lost bytes: the file is not kept.
        status();
        if (!m_fd.close()) {
            removeAtName();
            return Failed;
        }
        m_atName = false;
        m_created = true;
        return Committed;
    }
    if (m_named.isEmpty()) {
        // Where nothing stands the unnamed file takes the name at once; else
        // it gets a temporary name first, since only a rename replaces.
        if (linkUnder(m_target)) {
            m_created = true;
            return m_fd.close() ? Committed : Failed;
        }
        if (errno != EEXIST)
            return Failed;
        static unsigned counter = 0;
        for (int attempt = 0; attempt < 100 && m_named.isEmpty(); ++attempt) {
            const QByteArray name = "." + (m_target.size() > 200 ? QByteArray() : m_target) + ".setup-"
                + QByteArray::number(::getpid()) + "-" + QByteArray::number(++counter);
            if (linkUnder(name))
                m_named = name;
            else if (errno != EEXIST)
                return Failed;
        }
        if (m_named.isEmpty())
            return Failed;
    }
    if (::renameat(m_folder, m_named.constData(), m_folder, m_target.constData()) == 0) {
        m_named.clear();
        return m_fd.close() ? Committed : Failed;
    }
    return errno == EPERM || errno == EACCES ? copyInPlace() : Failed;
}

ReplacementFile::Outcome ReplacementFile::copyInPlace()
{
    struct stat content;
    const Descriptor target(
        ::openat(m_folder, m_target.constData(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status;
    // Only an ordinary file with one name: writing into a hard link would
    // change another file too.
    if (target.get() < 0 || ::fstat(target.get(), &status) != 0 || !S_ISREG(status.st_mode)
        || status.st_nlink != 1 || ::fstat(m_fd.get(), &content) != 0 || ::ftruncate(target.get(), 0) != 0
        || ::lseek(m_fd.get(), 0, SEEK_SET) != 0)
        return Failed;
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(m_fd.get(), buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return Failed;
        if (got == 0)
            break;
        if (!FileUtils::writeAll(target.get(), buffer, got))
            return Failed;
    }
    const struct timespec times[2] = { content.st_atim, content.st_mtim };
    ::futimens(target.get(), times);
    return ::fchmod(target.get(), content.st_mode & 07777) == 0 ? Committed : ModeRefused;
}
