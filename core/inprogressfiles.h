#pragma once

#include "core/descriptor.h"
#include "core/heldfolder.h"

#include <QByteArray>
#include <QSet>
#include <QString>

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <mutex>

// The files an installation makes under their own names where nothing stood,
// listed on disk before each is made and until the run has finished them.
// Such a file carries its name while it is written, so one that a kill cut
// short is on the list: the next run replaces it as its own instead of
// taking it for a user's newer file. A file is named by its folder's device
// and inode and its name, which no spelling of the destination changes.
//
// One line per file, "DEVICE INODE NAME", the name escaped as the manifest
// escapes it. A list another user owns or may write, or a link, is never
// obeyed nor written: then nothing is made under its own name.
class InProgressFiles
{
public:
    // The list at path with what earlier runs left on it; made only when a
    // file is first listed, in the folder held now. Null when the folder
    // cannot be held or the list is not to be obeyed.
    static std::unique_ptr<InProgressFiles> open(const QString &path);
    InProgressFiles(const InProgressFiles &) = delete;
    InProgressFiles &operator=(const InProgressFiles &) = delete;

    // Whether an earlier run left the file listed, so it may be cut short;
    // the file is then this run's to replace, and once the run finishes it
    // leaves the list. One thread only, as add().
    bool takeUnfinished(dev_t device, ino_t inode, const QByteArray &name);
    // Queues the file for the list; the number is what written() takes.
    quint64 add(dev_t device, ino_t inode, const QByteArray &name);
    // Whether the file numbered is on the list on disk; writes every queued
    // file at once when it is not yet. Any thread; false once a write failed.
    bool written(quint64 number);
    // Every file this run listed is complete: the list keeps only what
    // earlier runs left and this one did not replace, and goes when that is
    // nothing.
    void finish();

private:
    InProgressFiles(HeldFolder folder, const QByteArray &name, Descriptor file);
    static QByteArray line(dev_t device, ino_t inode, const QByteArray &name);

    HeldFolder m_folder;
    QByteArray m_name;
    // Open once the list exists; made by the first write when it did not.
    Descriptor m_file;
    // Lines left by earlier runs, and those of them this run replaces.
    QSet<QByteArray> m_earlier;
    QSet<QByteArray> m_replaced;
    std::mutex m_queueLock;
    QByteArray m_queued;
    quint64 m_added = 0;
    std::mutex m_writeLock;
    std::atomic<quint64> m_written { 0 };
    bool m_failed = false;
};
