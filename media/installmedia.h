#pragma once

#include "core/heldfolder.h"
#include "core/installcheckpoint.h"

#include <QObject>
#include <QSet>
#include <QStringList>

#include <memory>

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
    // Asks the overwrite decision about target (true when there is none).
    bool shouldCopy(qint64 sourceModified, quint64 sourceSize, const QString &target) const;
    // The folders one copy writes into, each found below the destination
    // and held, made when missing: a link planted among them, or a folder
    // swapped for one during the copy, never carries a file out of the
    // destination. Files come grouped by folder, so the last one is kept.
    class TargetFolders
    {
    public:
        explicit TargetFolders(const QString &destination);
        // The held folder for name (relative to the destination). Throws
        // InstallException with refusal when a link stands on the way or
        // the name climbs out, else "Cannot create folder " + its path.
        std::shared_ptr<HeldFolder> folderFor(const QString &name, const QString &refusal);
        static QString fileName(const QString &name) { return name.section(QLatin1Char('/'), -1); }
        // Whether something stood at name (relative to the destination)
        // when its folder was first held, from one listing of the folder
        // instead of a lookup per file; true when it could not be listed.
        // Called after folderFor(name).
        bool taken(const QString &name) const;

    private:
        QString m_destination;
        HeldFolder m_root;
        QString m_lastName;
        std::shared_ptr<HeldFolder> m_last;
        bool m_listed = false;
        QSet<QByteArray> m_present;
    };

private:
    InstallOverwriteDecision *m_decision = nullptr;
    InstallCheckpoint *m_checkpoint = nullptr;
};
