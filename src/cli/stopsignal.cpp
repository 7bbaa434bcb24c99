#include "cli/stopsignal.h"

#include <csignal>

namespace cli {
namespace {

sigset_t stopSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGUSR1})
        sigaddset(&set, number);
    return set;
}

} // namespace

StopSignal::StopSignal(std::function<void()> stop)
{
    const sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    m_thread = std::thread([this, stop = std::move(stop), set] {
        int number = 0;
        while (sigwait(&set, &number) != 0) {
        }
        if (m_isEnding)
            return;
        m_hasCome = true;
        stop();
    });
}

StopSignal::~StopSignal()
{
    m_isEnding = true;
    pthread_kill(m_thread.native_handle(), SIGUSR1);
    m_thread.join();
}

} // namespace cli
