#pragma once

#include <QByteArray>

#include <sys/stat.h>

// The SHA-256 of each file this run wrote, noted by the writer as the bytes
// went out, so that the manifest of an installation need not read every file
// back. A file is known by its device and inode with the size and time it had
// once complete: one replaced or resized since is read again. Thread-safe.
namespace WrittenDigests {

void note(const struct stat &status, const QByteArray &sha256);
// The digest noted for the file status describes, or an empty array.
QByteArray find(const struct stat &status);

} // namespace WrittenDigests
