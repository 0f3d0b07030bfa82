#pragma once

#include <QString>

// Creating folders, removing and copying files. Failures are reported by the
// result; callers turn them into their own messages.
namespace FileUtils {

// Creates the directory and every missing ancestor. True when it exists afterwards.
bool makePath(const QString &directory);
// Deletes a file; true on success.
bool removeFile(const QString &path);
// Copies source to target, into target/<name> when target is an existing
// directory (a link to one does not count). The copy gets the source's access
// and modification times and the source's mode less the process's
// file-creation mask. With createFolders the target's folder is made first.
// The copy is written beside the target and renamed over it when complete:
// an interrupted copy leaves the target as it was, and a symbolic link at the
// target is replaced, never followed.
bool copyFile(const QString &source, const QString &target, bool createFolders = false);
// Writes content as the whole file at path, replacing it the same way as
// copyFile; a new file gets mode 0666 less the file-creation mask.
bool writeFile(const QString &path, const QByteArray &content);
// Writes all size bytes to the descriptor, going on after interruptions.
bool writeAll(int fd, const char *data, qint64 size);

} // namespace FileUtils
