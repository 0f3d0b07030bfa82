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
// directory. The copy gets the source's access and modification times and the
// source's mode less the process's file-creation mask. With createFolders the
// target's folder is made first.
bool copyFile(const QString &source, const QString &target, bool createFolders = false);

} // namespace FileUtils
