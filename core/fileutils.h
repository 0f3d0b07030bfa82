#pragma once

#include <QByteArray>
#include <QString>

#include <sys/types.h>

#include <functional>

class HeldFolder;

// Creating folders, removing and copying files. Failures are reported by the
// result; callers turn them into their own messages. Files are written with
// ReplacementFile, inside folders reached as HeldFolder does: no link below
// the folder named is followed, and whatever stood at a target is replaced,
// never written through.
namespace FileUtils {

// Creates the directory and every missing ancestor. True when it exists afterwards.
bool makePath(const QString &directory);
// Deletes a file (a link is deleted itself); true on success.
bool removeFile(const QString &path);
// Copies source to target, into target/<name> when target is an existing
// directory (a link to one does not count). The copy gets the source's access
// and modification times and the source's permission bits less the process's
// file-creation mask; set-user, set-group and sticky bits are never copied.
// With createFolders the target's folder is made first.
bool copyFile(const QString &source, const QString &target, bool createFolders = false);
// The same, to name inside folder; written, when given, hears how many bytes
// are written so far after each block, and may throw to abandon the copy.
bool copyFile(const QString &source, const HeldFolder &folder, const QString &name,
    const std::function<void(qint64)> &written = nullptr);
// Writes content as the whole file at path, replacing it the same way as
// copyFile; a new file gets mode 0666 less the file-creation mask.
bool writeFile(const QString &path, const QByteArray &content);
bool writeFile(const HeldFolder &folder, const QString &name, const QByteArray &content);
// The same with the content made a piece at a time, so that a large file
// never has to be held whole: nextPiece appends the next piece to the
// empty array it is given and returns false with the last one.
bool writeFile(const QString &path, const std::function<bool(QByteArray &)> &nextPiece);
bool writeFile(
    const HeldFolder &folder, const QString &name, const std::function<bool(QByteArray &)> &nextPiece);
// Writes all size bytes to the descriptor, going on after interruptions.
bool writeAll(int fd, const char *data, qint64 size);
// The process's file-creation mask.
mode_t creationMask();

} // namespace FileUtils
