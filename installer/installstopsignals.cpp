#include "installer/installstopsignals.h"

namespace {

volatile std::sig_atomic_t s_request = InstallStopSignals::None;

void onStopSignal(int signal)
{
    // Nothing else is safe inside a handler.
    if (signal == SIGTERM)
        s_request = InstallStopSignals::Terminate;
    else if (s_request == InstallStopSignals::None)
        s_request = InstallStopSignals::Interrupt;
}

} // namespace

InstallStopSignals::InstallStopSignals()
{
    s_request = None;
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    // Neither handler interrupts the other, so a termination is never lost.
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
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

InstallStopSignals::Request InstallStopSignals::request()
{
    return Request(s_request);
}
