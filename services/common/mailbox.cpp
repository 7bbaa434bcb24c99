#include "common/mailbox.h"

#include <QPointer>

namespace services {

void Mailbox::post(const std::function<void()> &work)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_waiting.push_back(work);
    if (m_waiting.size() == 1)
        QMetaObject::invokeMethod(this, "drain", Qt::QueuedConnection);
}

void Mailbox::drain()
{
    std::vector<std::function<void()>> taken;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        taken.swap(m_waiting);
    }
    const QPointer<Mailbox> self(this); // a piece of work may end the mailbox
    for (const std::function<void()> &work : taken) {
        if (!self)
            return;
        work();
    }
}

} // namespace services
