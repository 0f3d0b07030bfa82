#include "media/packagearchiveextraction.h"

#include "core/fileutils.h"
#include "core/hexception.h"
#include "core/replacementfile.h"
#include "media/medialog.h"
#include "media/packagearchive.h"
#include "media/packagearchivecompressedinputfile.h"
#include "media/packagearchiveiofileinterface.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Members move from the decompressor to the writers in blocks of this size,
// and no more than BufferLimit bytes wait between them.
const qint32 BlockSize = 1 << 20;
const qint64 BufferLimit = qint64(8) << 20;

} // namespace

struct PackageArchiveExtraction::Job
{
    const PackageArchiveData *member = nullptr;
    std::shared_ptr<HeldFolder> folder;
    QByteArray name;
    QString path;
    // Filled by the reader, emptied by the writer.
    std::deque<QByteArray> blocks;
    bool readComplete = false;
    QString readError;
    // Set by the writer once the file is in place or has failed.
    bool written = false;
    QString writeError;
};

PackageArchiveExtraction::PackageArchiveExtraction(PackageArchive &archive, int writers)
    : m_archive(archive)
{
    m_threads.emplace_back(&PackageArchiveExtraction::readLoop, this);
    for (int i = 0; i < qMax(1, writers); ++i)
        m_threads.emplace_back(&PackageArchiveExtraction::writeLoop, this);
}

PackageArchiveExtraction::~PackageArchiveExtraction()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_readerWake.notify_all();
    m_writerWake.notify_all();
    for (std::thread &thread : m_threads)
        thread.join();
    if (const auto *stream
        = dynamic_cast<const PackageArchiveCompressedInputFile *>(m_archive.m_stream.get()))
        qCDebug(lcMedia) << "body: decompressed" << stream->decompressed() << "bytes so far";
}

void PackageArchiveExtraction::add(const PackageArchiveFile &member, const QString &path, bool overwrite)
{
    const QFileInfo info(path);
    auto folder = std::make_shared<HeldFolder>(HeldFolder::open(info.absolutePath(), HeldFolder::Create));
    if (!folder->isValid())
        throw HException(QStringLiteral("cannot create output file ") + path);
    addIn(member, folder, info.fileName(), path, overwrite);
}

void PackageArchiveExtraction::addBelow(
    const PackageArchiveFile &member, const QString &directory, const QString &relativeName, bool overwrite)
{
    PackageArchive::checkName(relativeName);
    const QString path = directory + QLatin1Char('/') + relativeName;
    const qsizetype slash = relativeName.lastIndexOf(QLatin1Char('/'));
    const QString folderName = slash < 0 ? QString() : relativeName.left(slash);
    if (!m_lastFolder || directory != m_rootPath || folderName != m_lastFolderName) {
        if (directory != m_rootPath || !m_root.isValid()) {
            m_root = HeldFolder::open(directory, HeldFolder::Create);
            m_rootPath = directory;
        }
        HeldFolder folder = m_root.below(folderName, HeldFolder::Create);
        if (!folder.isValid()) {
            m_lastFolder.reset();
            if (errno == ELOOP)
                throw HException(
                    QStringLiteral("refusing file name that leads through a symbolic link ") + relativeName);
            throw HException(QStringLiteral("cannot create output file ") + path);
        }
        m_lastFolder = std::make_shared<HeldFolder>(std::move(folder));
        m_lastFolderName = folderName;
    }
    addIn(member, m_lastFolder, relativeName.mid(slash + 1), path, overwrite);
}

void PackageArchiveExtraction::addIn(const PackageArchiveFile &member,
    const std::shared_ptr<HeldFolder> &folder, const QString &name, const QString &path, bool overwrite)
{
    auto job = std::make_shared<Job>();
    job->member = member.data();
    job->folder = folder;
    job->name = QFile::encodeName(name);
    job->path = path;
    struct stat status;
    if (!overwrite && ::fstatat(folder->fd(), job->name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        throw HException(QStringLiteral("cannot overwrite file ") + path);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_toRead.push_back(job);
        m_reports.push_back(job);
        m_pendingBytes += member.size();
    }
    m_readerWake.notify_one();
    m_writerWake.notify_one();
}

bool PackageArchiveExtraction::nextReady()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return !m_reports.empty() && m_reports.front()->written;
}

PackageArchiveFile PackageArchiveExtraction::takeNext()
{
    std::shared_ptr<Job> job;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        job = m_reports.front();
        if (!job->written) {
            // A caller that waits has added all it can for now: the reader
            // may go on with what is there.
            ++m_callerWaiting;
            m_readerWake.notify_one();
            m_doneWake.wait(lock, [&job] { return job->written; });
            --m_callerWaiting;
        }
        m_reports.pop_front();
        m_pendingBytes -= job->member->size;
    }
    if (!job->readError.isEmpty())
        throw HException(job->readError);
    if (!job->writeError.isEmpty())
        throw HException(job->writeError);
    return PackageArchiveFile(const_cast<PackageArchiveData *>(job->member));
}

void PackageArchiveExtraction::finish()
{
    while (pending() > 0)
        takeNext();
}

void PackageArchiveExtraction::readLoop()
{
    for (;;) {
        std::shared_ptr<Job> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            // Members are picked once the caller waits or has added a full
            // window, so the order they are read in can follow the body.
            m_readerWake.wait(lock, [this] {
                return m_stopping
                    || (!m_toRead.empty()
                        && (m_callerWaiting > 0 || int(m_reports.size()) >= MaxPending
                            || m_pendingBytes >= MaxPendingBytes));
            });
            if (m_stopping)
                return;
            // Of the members waiting, the next one on in the body, or the
            // first one if all lie behind: a batch given in another order
            // is read going forwards as far as it is known.
            auto chosen = m_toRead.end();
            for (auto it = m_toRead.begin(); it != m_toRead.end(); ++it) {
                const quint32 offset = (*it)->member->offset;
                const bool ahead = offset >= m_readPosition;
                if (chosen == m_toRead.end()) {
                    chosen = it;
                    continue;
                }
                const quint32 best = (*chosen)->member->offset;
                const bool bestAhead = best >= m_readPosition;
                if ((ahead && !bestAhead) || (ahead == bestAhead && offset < best))
                    chosen = it;
            }
            job = *chosen;
            m_toRead.erase(chosen);
            if (job->member->storage == PackageArchiveData::InArchive)
                m_readPosition = job->member->offset + job->member->size;
            // Writers take members in the order they are read, so a writer
            // never waits for bytes the reader cannot buffer.
            m_toWrite.push_back(job);
        }
        m_writerWake.notify_one();
        readJob(*job);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            job->readComplete = true;
        }
        m_writerWake.notify_all();
    }
}

void PackageArchiveExtraction::readJob(Job &job)
{
    const PackageArchiveData &member = *job.member;
    const auto deliver = [this, &job](QByteArray block) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_readerWake.wait(lock, [this] { return m_stopping || m_buffered < BufferLimit; });
        if (m_stopping)
            return false;
        m_buffered += block.size();
        job.blocks.push_back(std::move(block));
        lock.unlock();
        m_writerWake.notify_all();
        return true;
    };
    try {
        if (member.storage != PackageArchiveData::InArchive) {
            deliver(m_archive.data(PackageArchiveFile(const_cast<PackageArchiveData *>(&member))));
            return;
        }
        m_archive.readBody(member, deliver);
    } catch (const HException &) {
        job.readError = QStringLiteral("cannot read file ") + member.name + QStringLiteral(" from archive");
    }
}

QByteArray PackageArchiveExtraction::nextBlock(Job &job)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_writerWake.wait(lock, [this, &job] { return m_stopping || !job.blocks.empty() || job.readComplete; });
    if (m_stopping || job.blocks.empty())
        return QByteArray();
    QByteArray block = std::move(job.blocks.front());
    job.blocks.pop_front();
    const bool wasFull = m_buffered >= BufferLimit;
    m_buffered -= block.size();
    lock.unlock();
    if (wasFull)
        m_readerWake.notify_one();
    return block;
}

void PackageArchiveExtraction::writeLoop()
{
    for (;;) {
        std::shared_ptr<Job> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_writerWake.wait(lock, [this] { return m_stopping || !m_toWrite.empty(); });
            if (m_stopping)
                return;
            job = m_toWrite.front();
            m_toWrite.pop_front();
        }
        writeJob(*job);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            job->written = true;
        }
        m_doneWake.notify_one();
    }
}

void PackageArchiveExtraction::writeJob(Job &job)
{
    ReplacementFile file(job.folder->fd(), job.name);
    if (!file.isOpen())
        job.writeError = QStringLiteral("cannot create output file ") + job.path;

    // Take every block even after a failure, so the reader is never held up.
    bool complete = true;
    for (;;) {
        const QByteArray block = nextBlock(job);
        if (block.isEmpty()) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            complete = !m_stopping;
            break;
        }
        if (job.writeError.isEmpty() && !FileUtils::writeAll(file.fd(), block.constData(), block.size()))
            job.writeError = QStringLiteral("cannot write to output file ") + job.path;
    }
    if (!file.isOpen() || !complete || !job.writeError.isEmpty() || !job.readError.isEmpty())
        return;

    const PackageArchiveFile member(const_cast<PackageArchiveData *>(job.member));
    const time_t time = member.time().isValid() ? time_t(member.time().toSecsSinceEpoch()) : 0;
    const struct timespec times[2] = { { time, 0 }, { time, 0 } };
    ::futimens(file.fd(), times);
    if (::fchmod(file.fd(), mode_t(member.mode() & 0777)) != 0) {
        job.writeError = QStringLiteral("cannot set mode of output file ") + job.path;
        return;
    }
    switch (file.commit()) {
    case ReplacementFile::Committed:
        break;
    case ReplacementFile::ModeRefused:
        job.writeError = QStringLiteral("cannot set mode of output file ") + job.path;
        break;
    case ReplacementFile::Failed:
        job.writeError = QStringLiteral("cannot create output file ") + job.path;
        break;
    }
}
