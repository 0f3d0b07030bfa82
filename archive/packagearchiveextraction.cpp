#include "archive/packagearchiveextraction.h"

#include "archive/archivelogging.h"
#include "archive/packagearchive.h"
#include "archive/packagearchivecompressedinputfile.h"
#include "archive/packagearchiveiofileinterface.h"
#include "core/fileutils.h"
#include "core/hexception.h"
#include "core/inprogressfiles.h"
#include "core/replacementfile.h"
#include "core/sha256.h"
#include "core/writtendigests.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Members move from the decompressor to the writers in blocks of this size,
// and no more than BufferLimit bytes wait between them. Members up to a
// block are read whole and handed on together, up to HandOnBytes at a time.
const qint32 BlockSize = 1 << 20;
const qint64 BufferLimit = qint64(8) << 20;
const qint64 HandOnBytes = qint64(1) << 20;
// A caller that must wait waits for this many files at once.
const int TakeAhead = 32;
// A writer keeps a folder's files up to this many bytes; a folder of large
// files is shared out, its lock costs nothing beside the writing.
const qint64 FolderBytes = qint64(16) << 20;

} // namespace

struct PackageArchiveExtraction::Job
{
    const PackageArchiveData *member = nullptr;
    int index = 0;
    std::shared_ptr<HeldFolder> folder;
    QByteArray name;
    QString path;
    FileKey key;
    Writer *writer = nullptr;
    // Filled by the reader, emptied by the writer.
    std::deque<QByteArray> blocks;
    // Read whole before the writer got it, with this many bytes.
    bool whole = false;
    qint64 blockBytes = 0;
    bool readComplete = false;
    QString readError;
    // Set by the writer once the file is in place or has failed.
    std::atomic<bool> written { false };
    // The bytes the writer has written so far, for a caller waiting on a long file.
    std::atomic<qint64> bytesWritten { 0 };
    // The file now under the name where nothing stood before, set once it is in place.
    ino_t created = 0;
    // Its number on the list of files in progress, when it may be made under its name.
    quint64 listed = 0;
    QString writeError;
};

PackageArchiveExtraction::PackageArchiveExtraction(PackageArchive &archive, int writers)
    : m_archive(archive)
    , m_writers(size_t(qMax(1, writers)))
    , m_creationMask(FileUtils::creationMask())
{
    m_threads.emplace_back(&PackageArchiveExtraction::readLoop, this);
    for (Writer &writer : m_writers)
        m_threads.emplace_back(&PackageArchiveExtraction::writeLoop, this, std::ref(writer));
}

PackageArchiveExtraction::~PackageArchiveExtraction()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_readerWake.notify_all();
    for (Writer &writer : m_writers)
        writer.wake.notify_all();
    for (std::thread &thread : m_threads)
        thread.join();
    removeUntaken();
    if (m_archive.m_stream)
        qCDebug(lcArchive) << "body: decompressed" << m_archive.m_stream->decompressed() << "bytes so far";
}

void PackageArchiveExtraction::removeUntaken()
{
    for (const std::shared_ptr<Job> &job : m_reports) {
        struct stat status;
        // Only the file this extraction made: a name taken over since stays.
        if (job->created != 0 && job->written
            && ::fstatat(job->folder->fd(), job->name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0
            && status.st_ino == job->created && S_ISREG(status.st_mode))
            ::unlinkat(job->folder->fd(), job->name.constData(), 0);
    }
}

void PackageArchiveExtraction::reportWriting(int milliseconds, qint64 step)
{
    m_reportMilliseconds = milliseconds;
    m_reportStep = step;
}

void PackageArchiveExtraction::extract(
    int count, const std::function<Target(int index)> &target, const OnProgress &onProgress)
{
    const OnProgress tell = onProgress ? onProgress : OnProgress([](const Progress &) {});
    // The members before a refused one are written, as if one at a time; an
    // earlier failure is the one to report.
    const auto orFinish = [&](const auto &step) {
        try {
            return step();
        } catch (...) {
            takeAll(tell);
            throw;
        }
    };
    for (int index = 0; index < count; ++index) {
        const Target placed = orFinish([&] { return target(index); });
        const bool asked = bool(placed.admit);
        if (asked) {
            // What is asked about comes after what is in place: nothing is
            // asked after a file that failed.
            takeAll(tell);
            tell({ Progress::Next, index, 0 });
            if (!placed.admit())
                continue;
        }
        orFinish([&] { add(placed, index); });
        if (m_reports.size() == 1 && !asked)
            tell({ Progress::Next, index, 0 });
        while (!m_reports.empty() && (full() || nextReady()))
            takeNext(tell);
    }
    takeAll(tell);
}

PackageArchiveExtraction::Target PackageArchiveExtraction::at(
    const PackageArchiveFile &member, const QString &path, bool overwrite)
{
    const QFileInfo info(path);
    auto folder = std::make_shared<HeldFolder>(HeldFolder::open(info.absolutePath(), HeldFolder::Create));
    if (!folder->isValid())
        throw HException(QStringLiteral("cannot create output file ") + path);
    return { member, folder, info.fileName(), path, overwrite, false, {} };
}

PackageArchiveExtraction::Target PackageArchiveExtraction::below(
    const QString &directory, const PackageArchiveFile &member, const QString &relativeName, bool overwrite)
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
    return { member, m_lastFolder, relativeName.mid(slash + 1), path, overwrite, false, {} };
}

void PackageArchiveExtraction::add(const Target &target, int index)
{
    auto job = std::make_shared<Job>();
    job->member = target.member.data();
    job->index = index;
    job->folder = target.folder;
    job->name = QFile::encodeName(target.name);
    job->path = target.path;
    job->key = keyOf(target.folder, job->name);
    awaitEarlier(job->key);
    struct stat status;
    if (!target.overwrite
        && ::fstatat(target.folder->fd(), job->name.constData(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        throw HException(QStringLiteral("cannot overwrite file ") + target.path);
    if (target.folder.get() != m_writerFolder || m_writerBytes >= FolderBytes) {
        m_writerFolder = target.folder.get();
        m_writerIndex = (m_writerIndex + 1) % int(m_writers.size());
        m_writerBytes = 0;
    }
    m_writerBytes += target.member.size();
    // A folder that could not be looked at cannot be named on the list.
    if (target.free && m_inProgress && std::get<1>(job->key) != 0)
        job->listed = m_inProgress->add(std::get<0>(job->key), std::get<1>(job->key), job->name);
    job->writer = &m_writers[size_t(m_writerIndex)];
    m_targets[job->key] = job;
    m_reports.push_back(job);
    bool wake = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_toRead.push_back(job);
        ++m_pendingCount;
        m_pendingBytes += target.member.size();
        // The reader starts on a full window; before that it would only look.
        wake = windowFull();
    }
    if (wake)
        m_readerWake.notify_one();
}

bool PackageArchiveExtraction::windowFull() const
{
    return m_pendingCount >= MaxPending || m_pendingBytes >= MaxPendingBytes;
}

PackageArchiveExtraction::FileKey PackageArchiveExtraction::keyOf(
    const std::shared_ptr<HeldFolder> &folder, const QByteArray &name)
{
    // By identity, not by path: "a/x" and "a/./x" are one file. A folder that
    // cannot be looked at counts as any other such: that only costs a wait.
    if (folder != m_identifiedFolder) {
        struct stat status;
        const bool known = ::fstat(folder->fd(), &status) == 0;
        m_identifiedFolder = folder;
        m_folderDevice = known ? status.st_dev : 0;
        m_folderInode = known ? status.st_ino : 0;
    }
    return FileKey(m_folderDevice, m_folderInode, name);
}

void PackageArchiveExtraction::awaitEarlier(const FileKey &key)
{
    // The writers take members in body order, not in the order they were
    // added, and two writers may hold one file's members.
    const auto found = m_targets.find(key);
    if (found != m_targets.end() && !found->second->written)
        awaitWritten({ found->second.get() });
}

void PackageArchiveExtraction::awaitWritten(
    std::initializer_list<const Job *> jobs, int milliseconds, const Job *watched, qint64 step)
{
    const auto deadline
        = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(milliseconds, 0));
    const qint64 mark = watched && step > 0 ? (watched->bytesWritten / step + 1) * step : 0;
    std::unique_lock<std::mutex> lock(m_mutex);
    ++m_callerWaiting;
    m_readerWake.notify_one();
    m_watchedStep = step;
    m_watched = mark > 0 ? watched : nullptr;
    m_stepElsewhere = false;
    const auto progressed = [this, watched, mark] {
        return (mark > 0 && watched->bytesWritten >= mark) || m_stepElsewhere;
    };
    for (const Job *awaited : jobs) {
        m_awaited = awaited;
        const auto done = [awaited, &progressed] {
            return awaited->written.load() || progressed();
        };
        if (milliseconds < 0)
            m_doneWake.wait(lock, done);
        else if (!m_doneWake.wait_until(lock, deadline, done))
            break;
        if (progressed())
            break;
    }
    m_awaited = nullptr;
    m_watched = nullptr;
    --m_callerWaiting;
}

bool PackageArchiveExtraction::nextReady() const
{
    return !m_reports.empty() && m_reports.front()->written;
}

bool PackageArchiveExtraction::waitForNext(int milliseconds, qint64 step)
{
    const std::shared_ptr<Job> job = m_reports.front();
    if (job->written)
        return true;
    // A caller that waits has added all it can for now: the reader may go on
    // with what is there. It waits for a run of files, so that it is woken
    // once for them rather than once each.
    const Job *later = m_reports[std::min(m_reports.size(), size_t(TakeAhead)) - 1].get();
    awaitWritten({ later, job.get() }, milliseconds, job.get(), step);
    return job->written;
}

void PackageArchiveExtraction::takeNext(const OnProgress &onProgress)
{
    const std::shared_ptr<Job> job = m_reports.front();
    while (!waitForNext(m_reportMilliseconds, m_reportStep))
        onProgress({ Progress::Writing, job->index, job->bytesWritten });
    m_reports.pop_front();
    const auto key = m_targets.find(job->key);
    if (key != m_targets.end() && key->second == job)
        m_targets.erase(key);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        --m_pendingCount;
        m_pendingBytes -= job->member->size;
    }
    if (!job->readError.isEmpty())
        throw HException(job->readError);
    if (!job->writeError.isEmpty())
        throw HException(job->writeError);
    onProgress({ Progress::Written, job->index, qint64(job->member->size) });
    if (!m_reports.empty())
        onProgress({ Progress::Next, m_reports.front()->index, 0 });
}

void PackageArchiveExtraction::takeAll(const OnProgress &onProgress)
{
    while (!m_reports.empty())
        takeNext(onProgress);
}

void PackageArchiveExtraction::readLoop()
{
    std::vector<std::shared_ptr<Job>> picked;
    std::vector<std::shared_ptr<Job>> whole;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            // Members are picked once the caller waits or has added a full
            // window, so the order they are read in can follow the body.
            m_readerWake.wait(lock, [this] {
                return m_stopping || (!m_toRead.empty() && (m_callerWaiting > 0 || windowFull()));
            });
            if (m_stopping)
                return;
            picked.assign(m_toRead.begin(), m_toRead.end());
            m_toRead.clear();
        }
        // Of the members waiting, the next one on in the body, then on in
        // body order, back to the first once all ahead are read: a batch
        // given in another order is read going forwards as far as it is
        // known. Sorted outside the lock, which the caller needs per file.
        const quint32 from = m_readPosition;
        std::stable_sort(picked.begin(), picked.end(),
            [from](const std::shared_ptr<Job> &a, const std::shared_ptr<Job> &b) {
                const quint32 x = a->member->offset;
                const quint32 y = b->member->offset;
                return (x >= from) != (y >= from) ? x >= from : x < y;
            });
        for (const std::shared_ptr<Job> &job : picked) {
            if (job->member->storage == PackageArchiveData::InArchive)
                m_readPosition = job->member->offset + job->member->size;
        }
        // Writers take members in the order they are read, so a writer
        // never waits for bytes the reader cannot buffer.
        qint64 wholeBytes = 0;
        for (const std::shared_ptr<Job> &job : picked) {
            if (job->member->size > quint32(BlockSize)) {
                if (!handOn(whole, wholeBytes))
                    return;
                wholeBytes = 0;
                std::vector<std::shared_ptr<Job>> one { job };
                if (!handOn(one, 0))
                    return;
                readJob(*job, [this, &job](QByteArray block) {
                    std::unique_lock<std::mutex> lock(m_mutex);
                    m_readerWake.wait(lock, [this] { return m_stopping || m_buffered < BufferLimit; });
                    if (m_stopping)
                        return false;
                    m_buffered += block.size();
                    job->blocks.push_back(std::move(block));
                    lock.unlock();
                    job->writer->wake.notify_one();
                    return true;
                });
                {
                    const std::lock_guard<std::mutex> lock(m_mutex);
                    job->readComplete = true;
                }
                job->writer->wake.notify_one();
                continue;
            }
            // Nobody else sees a member read whole until it is handed on.
            readJob(*job, [&job](QByteArray block) {
                job->blockBytes += block.size();
                job->blocks.push_back(std::move(block));
                return true;
            });
            job->readComplete = true;
            job->whole = true;
            whole.push_back(job);
            wholeBytes += job->blockBytes;
            if (wholeBytes >= HandOnBytes) {
                if (!handOn(whole, wholeBytes))
                    return;
                wholeBytes = 0;
            }
        }
        if (!handOn(whole, wholeBytes))
            return;
        picked.clear();
    }
}

bool PackageArchiveExtraction::handOn(std::vector<std::shared_ptr<Job>> &jobs, qint64 bytes)
{
    if (jobs.empty())
        return true;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_readerWake.wait(lock, [this] { return m_stopping || m_buffered < BufferLimit; });
        if (m_stopping)
            return false;
        m_buffered += bytes;
        for (const std::shared_ptr<Job> &job : jobs)
            job->writer->jobs.push_back(job);
    }
    for (Writer &writer : m_writers)
        writer.wake.notify_one();
    jobs.clear();
    return true;
}

void PackageArchiveExtraction::readJob(Job &job, const std::function<bool(QByteArray)> &deliver)
{
    const PackageArchiveData &member = *job.member;
    try {
        if (member.storage != PackageArchiveData::InArchive) {
            deliver(m_archive.bytesOf(member));
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
    job.writer->wake.wait(
        lock, [this, &job] { return m_stopping || !job.blocks.empty() || job.readComplete; });
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

void PackageArchiveExtraction::release(qint64 bytes)
{
    bool wasFull = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        wasFull = m_buffered >= BufferLimit;
        m_buffered -= bytes;
    }
    if (wasFull)
        m_readerWake.notify_one();
}

void PackageArchiveExtraction::writeLoop(Writer &writer)
{
    std::deque<std::shared_ptr<Job>> jobs;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            writer.wake.wait(lock, [this, &writer] { return m_stopping || !writer.jobs.empty(); });
            if (m_stopping)
                return;
            jobs.swap(writer.jobs);
        }
        for (const std::shared_ptr<Job> &job : jobs) {
            writeJob(*job);
            job->written = true;
            // Only the file the caller waits for wakes it.
            if (m_awaited.load() == job.get()) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_doneWake.notify_one();
            }
        }
        jobs.clear();
    }
}

void PackageArchiveExtraction::reportWritten(Job &job, qint64 bytes)
{
    const qint64 total = job.bytesWritten += bytes;
    const qint64 step = m_watchedStep;
    // While the caller watches a file, a step of any file wakes it: of the
    // watched one to report it, of a later one to take the files before it
    // and watch it in turn, so that a long file is reported while it is
    // written rather than found done after a wait for a run of files.
    if (!m_watched.load() || step <= 0 || (total - bytes) / step == total / step)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stepElsewhere = m_stepElsewhere || m_watched.load() != &job;
    m_doneWake.notify_one();
}

void PackageArchiveExtraction::writeJob(Job &job)
{
    // A member read whole has all its bytes here already, counted once.
    const bool whole = job.whole;
    if (whole && !job.readError.isEmpty()) {
        release(job.blockBytes);
        return;
    }
    const PackageArchiveData &member = *job.member;
    const mode_t mode = mode_t(member.mode & 0777);
    // Under its name only once the list says so on disk, so that a kill
    // never leaves it there unlisted.
    const bool atName = job.listed != 0 && m_inProgress->written(job.listed);
    ReplacementFile file(job.folder->fd(), job.name, mode,
        atName ? ReplacementFile::AtNameWhereFree : ReplacementFile::Unnamed);
    if (!file.isOpen())
        job.writeError = QStringLiteral("cannot create output file ") + job.path;

    // Take every block even after a failure, so the reader is never held up.
    bool complete = true;
    Sha256 hash;
    if (whole) {
        for (const QByteArray &block : job.blocks) {
            if (job.writeError.isEmpty() && !FileUtils::writeAll(file.fd(), block.constData(), block.size()))
                job.writeError = QStringLiteral("cannot write to output file ") + job.path;
            hash.addData(block.constData(), block.size());
            reportWritten(job, block.size());
        }
        job.blocks.clear();
        release(job.blockBytes);
    } else {
        for (;;) {
            const QByteArray block = nextBlock(job);
            if (block.isEmpty()) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                complete = !m_stopping;
                break;
            }
            if (job.writeError.isEmpty() && !FileUtils::writeAll(file.fd(), block.constData(), block.size()))
                job.writeError = QStringLiteral("cannot write to output file ") + job.path;
            hash.addData(block.constData(), block.size());
            reportWritten(job, block.size());
        }
    }
    if (!file.isOpen() || !complete || !job.writeError.isEmpty() || !job.readError.isEmpty())
        return;

    const time_t time = member.time.isValid() ? time_t(member.time.toSecsSinceEpoch()) : 0;
    const struct timespec times[2] = { { time, 0 }, { time, 0 } };
    ::futimens(file.fd(), times);
    // The file was made with its mode; only bits the creation mask took need setting.
    if ((mode & m_creationMask) != 0 && ::fchmod(file.fd(), mode) != 0) {
        job.writeError = QStringLiteral("cannot set mode of output file ") + job.path;
        return;
    }
    const struct stat *written = file.status();
    switch (file.commit()) {
    case ReplacementFile::Committed:
        if (written && file.created())
            job.created = written->st_ino;
        if (written)
            WrittenDigests::note(*written, hash.result());
        break;
    case ReplacementFile::ModeRefused:
        job.writeError = QStringLiteral("cannot set mode of output file ") + job.path;
        break;
    case ReplacementFile::Failed:
        job.writeError = QStringLiteral("cannot create output file ") + job.path;
        break;
    }
}
