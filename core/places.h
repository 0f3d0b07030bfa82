#pragma once

#include <QString>

// Places on the system that the installer needs. Plain functions without state.
namespace Places {

// The target of /proc/self/exe; the program's first argument when that link
// cannot be read or is 1024 bytes or longer.
QString executablePath();
// TMP, else TEMP (each only when set and not empty), else TMPDIR, else "/tmp".
QString temporaryFolder();
// "/usr/share".
QString systemDataFolder();
// $HOME + "/.local/share".
QString userDataFolder();
// Drops "." components and lets ".." remove the component before it. A
// leading ".." has nothing to remove and is dropped.
QString cleanPath(const QString &path);

} // namespace Places
