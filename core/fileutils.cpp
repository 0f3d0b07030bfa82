#include "core/fileutils.h"

#include "core/descriptor.h"
#include "core/heldfolder.h"
#include "core/replacementfile.h"
#include "core/sha256.h"
#include "core/writtendigests.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FileUtils {

namespace {

QString folderOf(const QString &path)
{
    return QFileInfo(path).absolutePath();
}

} // namespace

mode_t creationMask()
{
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

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
    return HeldFolder::open(directory, HeldFolder::Create).isValid();
}

bool removeFile(const QString &path)
{
    const HeldFolder folder = HeldFolder::open(folderOf(path));
    return folder.isValid()
        && ::unlinkat(folder.fd(), QFile::encodeName(QFileInfo(path).fileName()).constData(), 0) == 0;
}

bool copyFile(const QString &source, const QString &target, bool createFolders)
{
    if (!QFileInfo::exists(source))
        return false;
    HeldFolder folder
        = HeldFolder::open(folderOf(target), createFolders ? HeldFolder::Create : HeldFolder::Existing);
    QString name = QFileInfo(target).fileName();
    // Only a real directory takes the file in: a link to one would carry the
    // copy somewhere the caller never named.
    struct stat status;
    if (name.isEmpty())
        name = QFileInfo(source).fileName();
    else if (folder.isValid()
        && ::fstatat(folder.fd(), QFile::encodeName(name).constData(), &status, AT_SYMLINK_NOFOLLOW) == 0
        && S_ISDIR(status.st_mode)) {
        folder = folder.below(name);
        name = QFileInfo(source).fileName();
    }
    return folder.isValid() && copyFile(source, folder, name);
}

bool copyFile(const QString &source, const HeldFolder &folder, const QString &name,
    const std::function<void(qint64)> &written)
{
    Descriptor in(::open(QFile::encodeName(source).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat sourceStatus;
    if (in.get() < 0 || ::fstat(in.get(), &sourceStatus) != 0 || !S_ISREG(sourceStatus.st_mode))
        return false;
    ReplacementFile out(folder.fd(), QFile::encodeName(name));
    if (!out.isOpen())
        return false;

    QByteArray block(131072, Qt::Uninitialized);
    qint64 total = 0;
    Sha256 hash;
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
        hash.addData(block.constData(), got);
        total += got;
        if (written)
            written(total);
    }

    const struct timespec times[2] = { sourceStatus.st_atim, sourceStatus.st_mtim };
    if (::futimens(out.fd(), times) != 0)
        return false;
    // The mode comes from the source, never from an earlier file at the
    // target, and a medium never hands out set-id rights.
    if (::fchmod(out.fd(), (sourceStatus.st_mode & 0777) & ~creationMask()) != 0)
        return false;
    // Measured before the commit, which lets the descriptor go.
    struct stat copied;
    const bool known = ::fstat(out.fd(), &copied) == 0;
    if (out.commit() != ReplacementFile::Committed)
        return false;
    if (known)
        WrittenDigests::note(copied, hash.result());
    return true;
}

bool writeFile(const QString &path, const QByteArray &content)
{
    const HeldFolder folder = HeldFolder::open(folderOf(path));
    return folder.isValid() && writeFile(folder, QFileInfo(path).fileName(), content);
}

bool writeFile(const HeldFolder &folder, const QString &name, const QByteArray &content)
{
    return writeFile(folder, name, [&content](QByteArray &piece) {
        piece = content;
        return false;
    });
}

bool writeFile(const QString &path, const std::function<bool(QByteArray &)> &nextPiece)
{
    const HeldFolder folder = HeldFolder::open(folderOf(path));
    return folder.isValid() && writeFile(folder, QFileInfo(path).fileName(), nextPiece);
}

bool writeFile(
    const HeldFolder &folder, const QString &name, const std::function<bool(QByteArray &)> &nextPiece)
{
    ReplacementFile out(folder.fd(), QFile::encodeName(name));
    if (!out.isOpen())
        return false;
    QByteArray piece;
    for (bool more = true; more;) {
        // Emptied, not freed: each piece reuses the last one's room.
        piece.resize(0);
        more = nextPiece(piece);
        if (!writeAll(out.fd(), piece.constData(), piece.size()))
            return false;
    }
    // A new file gets what the creation mask allows, as an ordinary create would.
    if (::fchmod(out.fd(), 0666 & ~creationMask()) != 0)
        return false;
    return out.commit() == ReplacementFile::Committed;
}

} // namespace FileUtils
