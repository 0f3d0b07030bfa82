#pragma once

#include <QString>

// The log a run appends to when started with "--log FILE": every line a
// silent run prints, each file written or removed and each question with its
// answer, one line each with the time (UTC) in front. Process-wide; written
// from the user-interface thread. Nothing is written while no log is open.
namespace InstallLog {

// Opens path for appending, never truncating it and never through a link:
// the folder is held as HeldFolder holds it, the file must be a regular file
// of the running user's with no other name. Empty when open, else why not.
QString open(const QString &path);
bool isOpen();
// A text of several lines gets the time on each.
void write(const QString &text);

} // namespace InstallLog
