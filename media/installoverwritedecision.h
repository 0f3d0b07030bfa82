#pragma once

#include <QString>
#include <QtGlobal>

// Decides whether a medium may replace a file that it is about to write. The
// plan implements it (with the user's "to all" answers); a medium without one
// replaces every file. Called on the user-interface thread, once per file
// that a medium finds already there (an archive medium asks only about names
// its listing of the folder holds).
class InstallOverwriteDecision
{
public:
    virtual ~InstallOverwriteDecision() = default;

    // sourceModified is in seconds since 1970-01-01 UTC, the resolution that
    // both kinds of medium keep. May throw InstallUserCancelException.
    virtual bool shouldOverwrite(qint64 sourceModified, quint64 sourceSize, const QString &destination) = 0;
};
