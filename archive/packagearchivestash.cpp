#include "archive/packagearchivestash.h"

#include "archive/archivelogging.h"
#include "archive/packagearchivedata.h"
#include "archive/packagearchiveiofileinterface.h"
#include "core/fileutils.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

const qint32 CopySize = 1 << 20;
// Left free in the temporary folder for everybody else.
const qint64 Reserve = qint64(64) << 20;

bool readAll(int fd, char *data, qint64 size, qint64 at)
{
    while (size > 0) {
        const ssize_t got = ::pread(fd, data, size_t(size), at);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        data += got;
        size -= got;
        at += got;
    }
    return true;
}

} // namespace

PackageArchiveStash::~PackageArchiveStash()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool PackageArchiveStash::wants(const PackageArchiveData *member) const
{
    return !m_failed && member->size > 0 && !m_places.count(member) && !m_read.count(member);
}

// Unnamed, so that nothing is left behind however the process ends.
bool PackageArchiveStash::open()
{
    if (m_fd >= 0)
        return true;
    // Empty when the folder named in TMPDIR does not exist.
    const QByteArray folder = QFile::encodeName(QDir::tempPath());
    if (!folder.isEmpty())
        m_fd = ::open(folder.constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (m_fd < 0 && !folder.isEmpty()) {
        QByteArray name = folder + "/setup-stash-XXXXXX";
        m_fd = ::mkostemp(name.data(), O_CLOEXEC);
        if (m_fd >= 0)
            ::unlink(name.constData());
    }
    if (m_fd < 0) {
        qCInfo(lcArchive) << "no temporary file to keep skipped members in; seeking instead";
        m_failed = true;
        return false;
    }
    // The kept members are written to the destination as well, which may be
    // on the same file system: half of what is free leaves room for them.
    struct statvfs room;
    if (::fstatvfs(m_fd, &room) == 0)
        m_cap = std::max<qint64>((qint64(room.f_bavail) * qint64(room.f_frsize) - Reserve) / 2, 0);
    return true;
}

void PackageArchiveStash::put(const PackageArchiveData *member, PackageArchiveIOFileInterface &stream)
{
    if (!open())
        return;
    // Left to seeking when it does not fit; a smaller one later may.
    if (m_kept + qint64(member->size) > m_cap)
        return;
    QByteArray block(qint32(qMin<quint32>(member->size, CopySize)), Qt::Uninitialized);
    for (quint32 done = 0; done < member->size;) {
        const qint32 want = qint32(qMin<quint32>(member->size - done, CopySize));
        if (stream.read(block.data(), want) != want) {
            m_failed = true;
            return;
        }
        // Members are kept one after another: the file's own offset is m_end + done.
        if (!FileUtils::writeAll(m_fd, block.constData(), want)) {
            qCInfo(lcArchive) << "the temporary file for skipped members is full; seeking instead";
            m_failed = true;
            return;
        }
        done += quint32(want);
    }
    m_places.emplace(member, m_end);
    m_end += member->size;
    m_kept += member->size;
}

PackageArchiveStash::Taken PackageArchiveStash::take(
    const PackageArchiveData *member, qint32 blockSize, const std::function<bool(QByteArray)> &deliver)
{
    const auto place = m_places.find(member);
    if (place == m_places.end())
        return NotKept;
    const qint64 at = place->second;
    m_places.erase(place);
    m_read.insert(member);
    m_kept -= member->size;
    for (quint32 done = 0; done < member->size;) {
        const qint32 want = qint32(qMin<quint32>(member->size - done, quint32(blockSize)));
        QByteArray block(want, Qt::Uninitialized);
        if (!readAll(m_fd, block.data(), want, at + done))
            return Unreadable;
        if (!deliver(std::move(block)))
            break;
        done += quint32(want);
    }
    // The bytes are taken: their disk space can go.
    ::fallocate(m_fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, at, member->size);
    return Delivered;
}
