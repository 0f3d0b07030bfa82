#pragma once

#include <QStringList>

// Runs one of the desktop's cache commands (update-desktop-database,
// update-mime-database, gtk-update-icon-cache) and waits for it. Its output
// goes to the plan's log, not to the installer's console: the installer's
// standard error is for its own errors and answers. The exit status is not
// looked at, since a stale cache only delays the menu or the icons.
void runDesktopCacheUpdate(const QStringList &command);
