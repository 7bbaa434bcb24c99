#pragma once

#include <atomic>
#include <functional>
#include <pthread.h>
#include <thread>

namespace cli {

/// Calls a function once on SIGINT or SIGTERM, from a thread of its own, so that the function may
/// do anything. To be made on the main thread before it starts others.
class StopSignal
{
public:
    explicit StopSignal(std::function<void()> stop);
    ~StopSignal();

    StopSignal(const StopSignal &) = delete;
    StopSignal &operator=(const StopSignal &) = delete;

    bool hasCome() const { return m_hasCome; }

private:
    std::atomic<bool> m_hasCome{false};
    std::atomic<bool> m_isEnding{false};
    std::thread m_thread;
};

} // namespace cli
