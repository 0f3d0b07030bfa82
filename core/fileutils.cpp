#include "core/fileutils.h"

#include "core/descriptor.h"

#include <QByteArray>
#include <QDir>
#include <QFileInfo>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FileUtils {

namespace {

bool isDirectory(const QByteArray &path)
{
    struct stat status;
    return ::stat(path.constData(), &status) == 0 && S_ISDIR(status.st_mode);
}

mode_t currentUmask()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

bool isRealDirectory(const QByteArray &path)
{
    struct stat status;
    return ::lstat(path.constData(), &status) == 0 && S_ISDIR(status.st_mode);
}

// The new content of a file, written unnamed in the target's folder and put
// in place by a rename once complete. An interrupted copy never leaves half a
// file under the real name, and whatever stood at the target (a link planted
// there, a hard link to another file) is replaced, never written through.
class ReplacementFile
{
public:
    explicit ReplacementFile(const QString &target)
        : m_target(QFile::encodeName(target))
    {
        const QString folder = QFileInfo(target).absolutePath();
        const QByteArray encodedFolder = QFile::encodeName(folder);
        // A directory cannot be replaced by a file.
        if (isRealDirectory(m_target))
            return;
        m_fd = ::open(encodedFolder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
        if (m_fd >= 0)
            return;
        // File systems without unnamed files get a named one, made exclusively.
        m_named = encodedFolder + "/." + QFile::encodeName(QFileInfo(target).fileName()) + ".XXXXXX";
        m_fd = ::mkostemp(m_named.data(), O_CLOEXEC);
        if (m_fd < 0)
            m_named.clear();
    }
    ~ReplacementFile()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        if (!m_named.isEmpty())
            ::unlink(m_named.constData());
    }
    ReplacementFile(const ReplacementFile &) = delete;
    ReplacementFile &operator=(const ReplacementFile &) = delete;

    bool isOpen() const { return m_fd >= 0; }
    int fd() const { return m_fd; }

    // Gives the file its name; false leaves the target as it was.
    bool commit()
    {
        if (m_named.isEmpty()) {
            // An unnamed file gets a temporary name first: a link cannot
            // replace an existing name, a rename can.
            static unsigned counter = 0;
            const QByteArray fdPath = "/proc/self/fd/" + QByteArray::number(m_fd);
            for (int attempt = 0; attempt < 100 && m_named.isEmpty(); ++attempt) {
                const QByteArray name = m_target + ".setup-" + QByteArray::number(::getpid()) + "-"
                    + QByteArray::number(++counter);
                if (::linkat(AT_FDCWD, fdPath.constData(), AT_FDCWD, name.constData(), AT_SYMLINK_FOLLOW)
                    == 0)
                    m_named = name;
                else if (errno != EEXIST)
                    return false;
            }
            if (m_named.isEmpty())
                return false;
        }
        const int fd = m_fd;
        m_fd = -1;
        if (::close(fd) != 0 || ::rename(m_named.constData(), m_target.constData()) != 0)
            return false;
        m_named.clear();
        return true;
    }

private:
    QByteArray m_target;
    QByteArray m_named;
    int m_fd = -1;
};

} // namespace

bool writeAll(int fd, const char *data, qint64 size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size_t(qMin<qint64>(size, 1 << 30)));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

bool makePath(const QString &directory)
{
    const QString absolute = QFileInfo(directory).absoluteFilePath();
    const QByteArray encoded = QFile::encodeName(absolute);
    if (absolute == QLatin1String("/") || isDirectory(encoded))
        return true;
    const QString parent = absolute.left(absolute.lastIndexOf(QLatin1Char('/')));
    if (!parent.isEmpty() && parent != absolute && !isDirectory(QFile::encodeName(parent))) {
        if (!makePath(parent))
            return false;
    }
    if (::mkdir(encoded.constData(), 0777) == 0)
        return true;
    // Another writer may have made it meanwhile.
    return errno == EEXIST && isDirectory(encoded);
}

bool removeFile(const QString &path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0;
}

bool copyFile(const QString &source, const QString &target, bool createFolders)
{
    const QByteArray sourcePath = QFile::encodeName(source);
    struct stat sourceStatus;
    if (::stat(sourcePath.constData(), &sourceStatus) != 0)
        return false;

    if (createFolders && !makePath(QFileInfo(target).absolutePath()))
        return false;

    // Only a real directory takes the file in: a link to one would carry the
    // copy somewhere the caller never named.
    QString destination = target;
    if (isRealDirectory(QFile::encodeName(target)))
        destination = target + QLatin1Char('/') + QFileInfo(source).fileName();

    Descriptor in(::open(sourcePath.constData(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0 || ::fstat(in.get(), &sourceStatus) != 0)
        return false;
    ReplacementFile out(destination);
    if (!out.isOpen())
        return false;

    QByteArray block(131072, Qt::Uninitialized);
    for (;;) {
        const ssize_t got = ::read(in.get(), block.data(), size_t(block.size()));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (got == 0)
            break;
        if (!writeAll(out.fd(), block.constData(), got))
            return false;
    }

    const struct timespec times[2] = { sourceStatus.st_atim, sourceStatus.st_mtim };
    if (::futimens(out.fd(), times) != 0)
        return false;
    // The mode comes from the source, never from an earlier file at the target.
    if (::fchmod(out.fd(), (sourceStatus.st_mode & 07777) & ~currentUmask()) != 0)
        return false;
    return out.commit();
}

bool writeFile(const QString &path, const QByteArray &content)
{
    ReplacementFile out(path);
    if (!out.isOpen() || !writeAll(out.fd(), content.constData(), content.size()))
        return false;
    // A new file gets what the creation mask allows, as an ordinary create would.
    if (::fchmod(out.fd(), 0666 & ~currentUmask()) != 0)
        return false;
    return out.commit();
}

} // namespace FileUtils
