#pragma once

#include "common/servicehost.h"
#include "core/workerthread.h"

namespace services {
namespace recoveryd {

/// A thread that works requests off one after another; the answers leave from the owner's thread.
/// The destructor waits for the job that runs and forgets those that wait.
class JobThread
{
public:
    explicit JobThread(const QString &name)
        : m_worker(new QObject)
    {
        m_thread.start(m_worker, name);
    }

    void run(const std::function<Reply()> &job, const ServiceHost::Respond &respond)
    {
        QObject *const owner = &m_owner;
        QMetaObject::invokeMethod(
            m_worker,
            [owner, job, respond] {
                const Reply reply = job();
                QMetaObject::invokeMethod(
                    owner, [respond, reply] { respond(reply); }, Qt::QueuedConnection);
            },
            Qt::QueuedConnection);
    }

private:
    QObject m_owner; // before the thread, so that it outlives the last job
    QObject *m_worker;
    core::WorkerThread m_thread;
};

} // namespace recoveryd
} // namespace services
