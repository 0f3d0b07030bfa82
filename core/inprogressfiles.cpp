#include "core/inprogressfiles.h"

#include "core/fileutils.h"
#include "core/replacementfile.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Far more than any installation lists (about 40 bytes a file).
const qint64 MaxSize = qint64(16) << 20;

} // namespace

InProgressFiles::InProgressFiles(HeldFolder folder, const QByteArray &name, Descriptor file)
    : m_folder(std::move(folder))
    , m_name(name)
    , m_file(std::move(file))
{ }

std::unique_ptr<InProgressFiles> InProgressFiles::open(const QString &path)
{
    const QFileInfo info(path);
    HeldFolder folder = HeldFolder::open(info.absolutePath());
    if (!folder.isValid())
        return nullptr;
    const QByteArray name = QFile::encodeName(info.fileName());
    Descriptor file(
        ::openat(folder.fd(), name.constData(), O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0) {
        if (errno != ENOENT)
            return nullptr;
        return std::unique_ptr<InProgressFiles>(new InProgressFiles(std::move(folder), name, Descriptor()));
    }
    // Only its owner may read or write it: one with looser bits was not left so by this installer.
    struct stat status;
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != ::geteuid()
        || (status.st_mode & 077) != 0 || status.st_nlink != 1 || status.st_size > MaxSize)
        return nullptr;
    QByteArray content(qsizetype(status.st_size), Qt::Uninitialized);
    qsizetype got = 0;
    while (got < content.size()) {
        const ssize_t read = ::read(file.get(), content.data() + got, size_t(content.size() - got));
        if (read < 0 && errno == EINTR)
            continue;
        if (read <= 0)
            return nullptr;
        got += read;
    }
    std::unique_ptr<InProgressFiles> list(new InProgressFiles(std::move(folder), name, std::move(file)));
    // Lines are only ever compared whole with lines made the same way, so a
    // damaged one matches nothing.
    for (const QByteArray &line : content.split('\n')) {
        if (!line.isEmpty())
            list->m_earlier.insert(line);
    }
    return list;
}

QByteArray InProgressFiles::line(dev_t device, ino_t inode, const QByteArray &name)
{
    return QByteArray::number(quint64(device)) + ' ' + QByteArray::number(quint64(inode)) + ' '
        + QByteArray(name).replace('\\', "\\\\").replace('\n', "\\n");
}

bool InProgressFiles::takeUnfinished(dev_t device, ino_t inode, const QByteArray &name)
{
    if (m_earlier.isEmpty())
        return false;
    const QByteArray listed = line(device, inode, name);
    if (!m_earlier.contains(listed))
        return false;
    m_replaced.insert(listed);
    return true;
}

quint64 InProgressFiles::add(dev_t device, ino_t inode, const QByteArray &name)
{
    const QByteArray entry = line(device, inode, name) + '\n';
    const std::lock_guard<std::mutex> lock(m_queueLock);
    m_queued += entry;
    return ++m_added;
}

bool InProgressFiles::written(quint64 number)
{
    if (m_written.load(std::memory_order_acquire) >= number)
        return true;
    // The first writer to need its file listed writes what every other has
    // queued meanwhile: one write for a run of files.
    const std::lock_guard<std::mutex> lock(m_writeLock);
    if (m_written.load(std::memory_order_relaxed) >= number)
        return true;
    QByteArray queued;
    quint64 added = 0;
    {
        const std::lock_guard<std::mutex> queueLock(m_queueLock);
        queued.swap(m_queued);
        added = m_added;
    }
    // Made exclusively: a file that appeared at the name meanwhile is nobody's list to add to.
    if (!m_failed && m_file.get() < 0)
        m_file.reset(::openat(m_folder.fd(), m_name.constData(),
            O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0600));
    m_failed = m_failed || m_file.get() < 0
        || !FileUtils::writeAll(m_file.get(), queued.constData(), queued.size());
    if (m_failed)
        return false;
    m_written.store(added, std::memory_order_release);
    return true;
}

void InProgressFiles::finish()
{
    QByteArray kept;
    for (const QByteArray &line : std::as_const(m_earlier)) {
        if (!m_replaced.contains(line))
            kept += line + '\n';
    }
    if (m_file.get() < 0)
        return;
    if (!kept.isEmpty()) {
        ReplacementFile out(m_folder.fd(), m_name, 0600);
        if (out.isOpen() && FileUtils::writeAll(out.fd(), kept.constData(), kept.size()))
            out.commit();
        return;
    }
    // Only the list this run kept goes, not one put in its place meanwhile.
    struct stat own;
    struct stat there;
    if (::fstat(m_file.get(), &own) == 0
        && ::fstatat(m_folder.fd(), m_name.constData(), &there, AT_SYMLINK_NOFOLLOW) == 0
        && own.st_dev == there.st_dev && own.st_ino == there.st_ino)
        ::unlinkat(m_folder.fd(), m_name.constData(), 0);
}
