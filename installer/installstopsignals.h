#pragma once

#include <csignal>

// While one exists, SIGINT and SIGTERM no longer end the process at once:
// the handler only notes which stop was asked for, and the operation walk
// looks at the note at its next checkpoint, so an interrupted installation
// still ends with its record written. Destroying it puts the earlier handlers
// back. One at a time, on the user-interface thread.
class InstallStopSignals
{
public:
    // SIGINT is someone at the terminal (Ctrl-C); SIGTERM is what a system
    // shutdown or a service manager sends, and outweighs an interruption.
    enum Request { None, Interrupt, Terminate };

    InstallStopSignals();
    ~InstallStopSignals();
    InstallStopSignals(const InstallStopSignals &) = delete;
    InstallStopSignals &operator=(const InstallStopSignals &) = delete;

    // What arrived while this object existed.
    static Request request();

private:
    struct sigaction m_previousInterrupt;
    struct sigaction m_previousTerminate;
};
