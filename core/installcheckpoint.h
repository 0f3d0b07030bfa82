#pragma once

// A point in a long operation where a stop asked for from outside takes
// effect. The plan's walks and the media's copies pass one before each item
// and each file, and within long files, in their own code: the exception
// unwinds only through code written for it, never through a signal's slot or
// the toolkit's event loop. User-interface thread only.
class InstallCheckpoint
{
public:
    virtual ~InstallCheckpoint() = default;

    // Returns when the operation may go on. May throw
    // InstallUserCancelException or InstallShutdownException.
    virtual void check() = 0;
};
