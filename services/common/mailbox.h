#pragma once

#include <QObject>

#include <functional>
#include <mutex>
#include <vector>

namespace services {

/// Takes work from any thread and does it on its own, in order, from the event loop. Unlike a
/// functor in a queued call, the hand-over is by a lock that race detectors see.
class Mailbox : public QObject
{
    Q_OBJECT

public:
    /// Work that has not begun when the mailbox goes is forgotten.
    void post(const std::function<void()> &work);

private slots:
    void drain();

private:
    std::mutex m_mutex;
    std::vector<std::function<void()>> m_waiting;
};

} // namespace services
