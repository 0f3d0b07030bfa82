#pragma once

#include "core/heldfolder.h"
#include "core/installcheckpoint.h"
#include "core/installexception.h"

#include <QObject>
#include <QSet>
#include <QStringList>

#include <sys/types.h>

#include <memory>

class InProgressFiles;
class InstallOverwriteDecision;

// The run's one source of product files: a package archive or a directory
// tree. Paths inside a medium are relative with "/" separators; a folder is a
// path prefix without a trailing "/". While copying, every file is announced by
// extractingFile (its name) and, once written, by extractedFile (its size in
// bytes; listeners that want a running total keep it themselves). While a
// long file is written, extractedBytes tells how much of it is, every
// ProgressInterval milliseconds and every ProgressBytes, so progress moves
// within the file. The checkpoint is passed before each of these signals: a
// stop asked for takes effect between files and within a long one. Owned by
// the installer application; used on the user-interface thread.
class InstallMedia : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(InstallMedia)

public:
    explicit InstallMedia(QObject *parent = nullptr);
    ~InstallMedia() override;

    // Every file below folder, at any depth, relative to it; totalSize becomes
    // the sum of their sizes.
    virtual QStringList list(const QString &folder, quint64 &totalSize) = 0;
    // The size of every file of the medium.
    virtual quint64 totalSize() = 0;
    // Copies each of files (relative to sourceFolder) to destinationFolder +
    // "/" + name, in order, after asking the overwrite decision. Throws
    // InstallException with "Cannot create folder " or "Cannot copy file "
    // messages; files copied before a failure stay.
    virtual void copyFiles(
        const QString &sourceFolder, const QStringList &files, const QString &destinationFolder)
        = 0;

    // Not owned; null means every file is replaced.
    void setOverwriteDecision(InstallOverwriteDecision *decision) { m_decision = decision; }
    InstallOverwriteDecision *overwriteDecision() const { return m_decision; }
    // Not owned; null means nothing stops a copy from outside.
    void setCheckpoint(InstallCheckpoint *checkpoint) { m_checkpoint = checkpoint; }
    // Where the run lists the files it makes under their own names while it
    // writes them, and where an earlier run that was cut short left its
    // list. Opened when a copy first needs it; without one every file is
    // written unnamed and renamed into place.
    void setInProgressPath(const QString &path);
    // The run has finished every file it copied: the list keeps only what
    // earlier runs left and this one did not replace.
    void finishInProgress();

    // Often enough for a window to answer input at once, and for the bar to
    // move on a fast disk too.
    static constexpr int ProgressInterval = 50;
    static constexpr qint64 ProgressBytes = qint64(16) << 20;

signals:
    void extractingFile(const QString &filename);
    void extractedBytes(quint64 bytesOfFile);
    void extractedFile(quint64 bytesExtracted);

protected:
    // Throws what the checkpoint throws.
    void passCheckpoint() const
    {
        if (m_checkpoint)
            m_checkpoint->check();
    }
    static InstallException copyFailure(const QString &source, const QString &target);
    // The list of files in progress, opened on first use; null without one.
    InProgressFiles *inProgress();
    // Asks the overwrite decision about target (true when there is none).
    bool shouldCopy(qint64 sourceModified, quint64 sourceSize, const QString &target) const;
    // The folders one copy writes into, each found below the destination
    // and held, made when missing: a link planted among them, or a folder
    // swapped for one during the copy, never carries a file out of the
    // destination. Files come grouped by folder, so the last one is kept.
    class TargetFolders
    {
    public:
        // With a list of files in progress, files earlier runs left on it
        // are known.
        TargetFolders(const QString &destination, InProgressFiles *inProgress);
        // The held folder for name (relative to the destination). Throws
        // InstallException with "Cannot copy file SOURCE to TARGET" when a
        // link stands on the way or the name climbs out, else "Cannot create
        // folder " + its path.
        std::shared_ptr<HeldFolder> folderFor(
            const QString &name, const QString &source, const QString &target);
        static QString fileName(const QString &name)
        {
            return name.mid(name.lastIndexOf(QLatin1Char('/')) + 1);
        }
        // Whether something stood at name (relative to the destination)
        // when its folder was first held, from one listing of the folder
        // instead of a lookup per file; true when it could not be listed.
        // Called after folderFor(name).
        bool taken(const QString &name) const;
        // Whether an earlier run left the file at name on the list of files
        // in progress: it may be cut short, and is replaced without asking.
        bool takeUnfinished(const QString &name);

    private:
        QString m_destination;
        InProgressFiles *m_inProgress;
        dev_t m_device = 0;
        ino_t m_inode = 0;
        HeldFolder m_root;
        QString m_lastName;
        std::shared_ptr<HeldFolder> m_last;
        bool m_listed = false;
        QSet<QByteArray> m_present;
    };

private:
    InstallOverwriteDecision *m_decision = nullptr;
    InstallCheckpoint *m_checkpoint = nullptr;
    QString m_inProgressPath;
    std::unique_ptr<InProgressFiles> m_inProgress;
};
