#include "core/fileutils.h"

#include <QByteArray>
#include <QDir>
#include <QFileInfo>

#include <cerrno>
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

// Closes a descriptor when it goes out of scope.
class Descriptor
{
public:
    explicit Descriptor(int fd)
        : m_fd(fd)
    { }
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return m_fd; }
    bool close()
    {
        const int fd = m_fd;
        m_fd = -1;
        return ::close(fd) == 0;
    }

private:
    int m_fd;
};

bool writeAll(int fd, const char *data, ssize_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size_t(size));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
}

mode_t currentUmask()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

} // namespace

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

    QString destination = target;
    if (isDirectory(QFile::encodeName(target)))
        destination = target + QLatin1Char('/') + QFileInfo(source).fileName();
    const QByteArray targetPath = QFile::encodeName(destination);

    Descriptor in(::open(sourcePath.constData(), O_RDONLY | O_CLOEXEC));
    if (in.get() < 0 || ::fstat(in.get(), &sourceStatus) != 0)
        return false;
    Descriptor out(::open(targetPath.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (out.get() < 0)
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
        if (!writeAll(out.get(), block.constData(), got))
            return false;
    }

    const struct timespec times[2] = { sourceStatus.st_atim, sourceStatus.st_mtim };
    if (::futimens(out.get(), times) != 0)
        return false;
    // The mode comes from the source, never from an earlier file at the target.
    if (::fchmod(out.get(), (sourceStatus.st_mode & 07777) & ~currentUmask()) != 0)
        return false;
    return out.close();
}

} // namespace FileUtils
