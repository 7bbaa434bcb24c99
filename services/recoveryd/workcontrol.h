#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace services {
namespace recoveryd {

/// Pause, resume and stop of one piece of work, from any thread.
class WorkControl
{
public:
    void pause() { set(m_isPaused, true); }
    void resume() { set(m_isPaused, false); }
    void stop() { set(m_isStopped, true); }

    bool isPaused() const { return m_isPaused; }
    bool isStopped() const { return m_isStopped; }

    /// For the worker: returns at once unless paused, otherwise on resume() or stop(). False once
    /// stopped.
    bool waitWhilePaused()
    {
        if (m_isPaused && !m_isStopped) {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_changed.wait(lock, [this] { return !m_isPaused || m_isStopped; });
        }
        return !m_isStopped;
    }

private:
    void set(std::atomic<bool> &flag, bool value)
    {
        {
            // Under the lock, so that a worker about to sleep does not miss it.
            const std::lock_guard<std::mutex> lock(m_mutex);
            flag = value;
        }
        m_changed.notify_all();
    }

    std::atomic<bool> m_isPaused{false};
    std::atomic<bool> m_isStopped{false};
    std::mutex m_mutex;
    std::condition_variable m_changed;
};

} // namespace recoveryd
} // namespace services
