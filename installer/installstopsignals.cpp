#include "installer/installstopsignals.h"

namespace {

volatile std::sig_atomic_t s_stopRequested = 0;

void onStopSignal(int)
{
    // Nothing else is safe inside a handler.
    s_stopRequested = 1;
}

} // namespace

InstallStopSignals::InstallStopSignals()
{
    s_stopRequested = 0;
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    // Reads and writes in progress go on; the walk stops between files.
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &m_previousInterrupt);
    ::sigaction(SIGTERM, &action, &m_previousTerminate);
}

InstallStopSignals::~InstallStopSignals()
{
    ::sigaction(SIGINT, &m_previousInterrupt, nullptr);
    ::sigaction(SIGTERM, &m_previousTerminate, nullptr);
}

bool InstallStopSignals::stopRequested()
{
    return s_stopRequested != 0;
}
