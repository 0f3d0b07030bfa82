#pragma once

#include "core/descriptor.h"

#include <QByteArray>

#include <sys/stat.h>
#include <sys/types.h>

// The one way this program replaces a file: the new content is written to an
// unnamed file in the target's folder and given the target's name only once it
// is complete. Whatever stood at the name (a planted link, a hard link to
// another file) is replaced, never written through.
//
// What survives: a kill at any moment leaves the old file or the new one
// whole (but for a file made at its name, below), and no stray file (the
// content has no name until it is complete; on file systems without unnamed
// files a ".NAME.XXXXXX" file is used and removed on every path but a kill).
// Nothing is synced: after a power loss the file system's journal decides,
// and ext4 and xfs flush a file renamed over an older one before the rename.
// A file that may be written but not replaced (somebody else's, in a sticky
// shared folder) gets the bytes in place.
class ReplacementFile
{
public:
    // name is one component inside the folder held by folderFd. The content
    // is made with mode less the creation mask, as an ordinary create would.
    // With AtNameWhereFree, where nothing stands the file is made under its
    // name at once and has it while it is written: the caller keeps it
    // listed as in progress until it is complete. Abandoned, it is removed.
    enum Placement { Unnamed, AtNameWhereFree };
    ReplacementFile(int folderFd, const QByteArray &name, mode_t mode = 0600, Placement placement = Unnamed);
    ~ReplacementFile();
    ReplacementFile(const ReplacementFile &) = delete;
    ReplacementFile &operator=(const ReplacementFile &) = delete;

    bool isOpen() const { return m_fd.get() >= 0; }
    // Open for reading and writing; mode and times set on it are kept.
    int fd() const { return m_fd.get(); }
    enum Outcome {
        Failed, // the target is as it was
        Committed,
        // Written in place, but the file is someone else's and kept its mode.
        ModeRefused,
    };
    // Gives the content its name.
    Outcome commit();
    // After a commit: nothing stood at the name before, the file is new.
    bool created() const { return m_created; }
    // The content's status, asked once while it is open (so after the last
    // change of its times or mode); null when it cannot be.
    const struct stat *status();

private:
    bool linkUnder(const QByteArray &name);
    Outcome copyInPlace();
    void removeAtName();

    int m_folder;
    QByteArray m_target;
    QByteArray m_named;
    Descriptor m_fd;
    bool m_created = false;
    // Made under its name and not yet committed.
    bool m_atName = false;
    bool m_statusKnown = false;
    struct stat m_status;
};
