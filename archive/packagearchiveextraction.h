#pragma once

#include "archive/packagearchivefile.h"
#include "core/heldfolder.h"

#include <QString>

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>
#include <vector>

class InProgressFiles;
class PackageArchive;

// Writes a batch of members to disk with decompression and writing on worker
// threads: one thread reads the members' bytes from the archive, preferring
// the next one on in the body among those waiting, others write them,
// several files at a time. Each file is written as a ReplacementFile in a
// folder held since it was added, so an abandoned or failed file never shows
// under its final name and no folder swapped meanwhile redirects a file.
//
// Small files cost more in handing over than in writing, so work moves in
// batches: the reader reads several small members whole before it hands
// them on together, and a waiting caller is woken for a run of finished
// files, not for each. Each folder's files go to one writer, the next folder
// to the next: two writers creating files in one folder would queue on the
// folder's lock. A member for a file that one still under way also writes is
// queued once that one is in place, so the later member wins, and without
// overwrite it is refused, as if they were written one at a time.
//
// The caller (the user-interface thread) hands members over through one
// call, extract(), and hears of each in the order it gave them (reading
// starts once it waits for one or has a full window under way). Destroying
// an extraction that was not finished abandons what is still under way: the
// threads stop and the temporary files go, and so do the new files that were
// not reported yet, so that a cancelled or failed extraction leaves the
// folders as if files had been written one by one, up to the last one
// reported; a file that replaced another stays. The archive must not be read
// by anyone else until the extraction is finished or destroyed.
class PackageArchiveExtraction
{
public:
    // Where one member goes: name inside folder, which the caller holds;
    // path names the file in messages.
    struct Target
    {
        PackageArchiveFile member;
        std::shared_ptr<HeldFolder> folder;
        QString name;
        QString path;
        // Without it, a file already there is refused with "cannot overwrite file ".
        bool overwrite = true;
        // Nothing stood at the name when the folder was listed: with a list
        // of files in progress the file may be made under its name.
        bool free = false;
        // When set, asked once every member before is in place and this one
        // is announced: false leaves the member out.
        std::function<bool()> admit;
    };

    // What the caller hears of the oldest member under way: that its bytes
    // are the next to be written, how many of them are (when asked for with
    // reportWriting), or that it is in place with all of them.
    struct Progress
    {
        enum Event { Next, Writing, Written };
        Event event;
        // The member's index in extract()'s count.
        int index;
        qint64 bytes;
    };
    using OnProgress = std::function<void(const Progress &)>;

    explicit PackageArchiveExtraction(PackageArchive &archive, int writers = defaultWriters());
    ~PackageArchiveExtraction();
    PackageArchiveExtraction(const PackageArchiveExtraction &) = delete;
    PackageArchiveExtraction &operator=(const PackageArchiveExtraction &) = delete;

    // Two writers keep a decompressing core and the file system busy on the
    // machines this runs on; more only add contention.
    static int defaultWriters() { return 2; }

    // Files whose name was free are made under it, listed in list (not
    // owned) until complete; without a list every file is written unnamed.
    void setInProgress(InProgressFiles *list) { m_inProgress = list; }

    // While the caller waits for a member, Writing reports its bytes every
    // milliseconds and every step bytes; without it, it waits silently.
    void reportWriting(int milliseconds, qint64 step);

    // Writes count members, the index-th where target(index) says; target is
    // asked for each in turn whenever there is room for one more, and
    // onProgress hears of each, in that order, on the caller's thread. A
    // failure (a member that cannot be written, or what target, admit or
    // onProgress throw) is thrown once the members before it are in place
    // and reported; an earlier failure wins. Called once per extraction.
    void extract(
        int count, const std::function<Target(int index)> &target, const OnProgress &onProgress = {});

    // The target directory + "/" + relativeName, a name checked like
    // PackageArchive::checkName, with the missing folders made; no link
    // below directory is followed.
    Target below(const QString &directory, const PackageArchiveFile &member, const QString &relativeName,
        bool overwrite);
    // The target exactly path, with the missing folders made.
    static Target at(const PackageArchiveFile &member, const QString &path, bool overwrite);

private:
    struct Job;
    // A file to be written: its folder's device and inode, and its name.
    using FileKey = std::tuple<dev_t, ino_t, QByteArray>;
    // The window of members added ahead of those taken back: the reader
    // orders what is in it by place in the body.
    static constexpr int MaxPending = 512;
    static constexpr qint64 MaxPendingBytes = qint64(32) << 20;

    struct Writer
    {
        std::condition_variable wake;
        std::deque<std::shared_ptr<Job>> jobs;
    };

    // Queues the member; throws "cannot overwrite file " as Target says.
    void add(const Target &target, int index);
    // Too many members are under way: take one back before adding more.
    bool full() const { return m_reports.size() >= size_t(MaxPending) || m_pendingBytes >= MaxPendingBytes; }
    // The oldest pending member is written (or has failed), so taking it will not wait.
    bool nextReady() const;
    // Waits at most milliseconds (without end when negative) for the oldest
    // pending member to be written or to fail, true once it is; with step,
    // returns early once another multiple of step bytes of it is written.
    bool waitForNext(int milliseconds, qint64 step);
    // Waits for the oldest pending member, reporting its bytes meanwhile,
    // and reports it and the one after it; throws HException with its
    // failure. onProgress must be callable.
    void takeNext(const OnProgress &onProgress);
    void takeAll(const OnProgress &onProgress);

    void readLoop();
    void writeLoop(Writer &writer);
    void readJob(Job &job, const std::function<bool(QByteArray)> &deliver);
    // Hands read jobs to their writers, once there is room for their bytes.
    bool handOn(std::vector<std::shared_ptr<Job>> &jobs, qint64 bytes);
    void writeJob(Job &job);
    void reportWritten(Job &job, qint64 bytes);
    // Waits for the job's next block; empty when it has no more.
    QByteArray nextBlock(Job &job);
    void release(qint64 bytes);
    bool windowFull() const;
    void removeUntaken();
    FileKey keyOf(const std::shared_ptr<HeldFolder> &folder, const QByteArray &name);
    // Waits, as the caller, for an earlier member under way to the same file.
    void awaitEarlier(const FileKey &key);
    // Waits, as the caller, until each job in turn is written, at most
    // milliseconds unless that is negative, or until watched has another
    // multiple of step bytes written. The reader goes on with all that was
    // added meanwhile.
    void awaitWritten(std::initializer_list<const Job *> jobs, int milliseconds = -1,
        const Job *watched = nullptr, qint64 step = 0);

    PackageArchive &m_archive;
    std::mutex m_mutex;
    // The reader waits for work and for room, each writer for its work and
    // blocks, the caller for a written file.
    std::condition_variable m_readerWake;
    std::condition_variable m_doneWake;
    bool m_stopping = false;
    std::deque<std::shared_ptr<Job>> m_toRead;
    std::deque<Writer> m_writers;
    // The caller's own: only it adds and takes.
    std::deque<std::shared_ptr<Job>> m_reports;
    // m_reports' length, for the reader.
    int m_pendingCount = 0;
    qint64 m_buffered = 0;
    // Bytes of the members added and not taken back; changed by the caller
    // under the lock, read by the reader.
    qint64 m_pendingBytes = 0;
    int m_callerWaiting = 0;
    int m_reportMilliseconds = -1;
    qint64 m_reportStep = 0;
    // The file the caller waits for; a writer wakes it for that one only.
    std::atomic<const Job *> m_awaited { nullptr };
    // The file whose progress the caller waits for, every m_watchedStep bytes.
    std::atomic<const Job *> m_watched { nullptr };
    std::atomic<qint64> m_watchedStep { 0 };
    // Another file than the watched one passed a step during the wait.
    bool m_stepElsewhere = false;
    // Which writer takes the files of the folder added last, and how much
    // it has been given since it started on that folder.
    const HeldFolder *m_writerFolder = nullptr;
    int m_writerIndex = 0;
    qint64 m_writerBytes = 0;
    mode_t m_creationMask = 0;
    InProgressFiles *m_inProgress = nullptr;
    // Where the reader's last member ended in the body.
    quint32 m_readPosition = 0;
    std::vector<std::thread> m_threads;
    // The folder of the last member added below a directory, and that
    // directory: members come grouped by folder.
    QString m_rootPath;
    HeldFolder m_root;
    QString m_lastFolderName;
    std::shared_ptr<HeldFolder> m_lastFolder;
    // The last member added for each file, while it is pending.
    std::map<FileKey, std::shared_ptr<Job>> m_targets;
    // The folder whose identity was looked up last: members come in runs by folder.
    std::shared_ptr<HeldFolder> m_identifiedFolder;
    dev_t m_folderDevice = 0;
    ino_t m_folderInode = 0;
};
