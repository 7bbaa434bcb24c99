#pragma once

#include "common/mailbox.h"
#include "common/servicehost.h"
#include "core/workerthread.h"

namespace services {
namespace recoveryd {

/// A thread that works requests off one after another; the answers leave from the owner's thread.
/// The destructor waits for the jobs that have begun; those that still wait may be forgotten.
class JobThread
{
public:
    explicit JobThread(const QString &name)
        : m_worker(new Mailbox)
    {
        m_thread.start(m_worker, name);
    }

    void run(const std::function<Reply()> &job, const ServiceHost::Respond &respond)
    {
        m_worker->post([this, job, respond] {
            const Reply reply = job();
            m_answers.post([respond, reply] { respond(reply); });
        });
    }

private:
    Mailbox m_answers; // before the thread, so that it outlives the last job
    Mailbox *m_worker;
    core::WorkerThread m_thread;
};

} // namespace recoveryd
} // namespace services
