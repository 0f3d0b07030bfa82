#pragma once

#include <csignal>

// While one exists, SIGINT and SIGTERM no longer end the process at once:
// the handler only notes that a stop was asked for, and the operation walk
// looks at the note at its next file or item boundary, so an interrupted
// installation still ends with its record written. Destroying it puts the
// earlier handlers back. One at a time, on the user-interface thread.
class InstallStopSignals
{
public:
    InstallStopSignals();
    ~InstallStopSignals();
    InstallStopSignals(const InstallStopSignals &) = delete;
    InstallStopSignals &operator=(const InstallStopSignals &) = delete;

    // True once SIGINT or SIGTERM arrived while this object existed.
    static bool stopRequested();

private:
    struct sigaction m_previousInterrupt;
    struct sigaction m_previousTerminate;
};
