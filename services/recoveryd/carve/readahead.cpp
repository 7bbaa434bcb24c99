#include "recoveryd/carve/readahead.h"

namespace services::recoveryd {

ReadAhead::ReadAhead(Read read)
    : m_read(std::move(read))
    , m_thread([this] { work(); })
{}

ReadAhead::~ReadAhead()
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_state != State::Reading; });
        m_state = State::Ending;
    }
    m_changed.notify_all();
    m_thread.join();
}

void ReadAhead::work()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock,
                       [this] { return m_state == State::Wanted || m_state == State::Ending; });
        if (m_state == State::Ending)
            return;
        m_state = State::Reading;
        lock.unlock();
        m_read(m_offset, m_buffer.data() + m_shift, m_length);
        lock.lock();
        m_state = State::Done;
        m_changed.notify_all();
    }
}

void ReadAhead::begin(qint64 offset, qint64 length, qint64 shift, qint64 capacity)
{
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_state != State::Reading; });
        m_buffer.resize(size_t(capacity));
        m_offset = offset;
        m_length = length;
        m_shift = shift;
        m_state = State::Wanted;
    }
    m_changed.notify_all();
}

qint64 ReadAhead::take(qint64 offset, Buffer *buffer)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state == State::Idle || m_offset != offset)
        return 0;
    m_changed.wait(lock, [this] { return m_state == State::Done; });
    m_state = State::Idle;
    m_buffer.swap(*buffer);
    return m_length;
}

} // namespace services::recoveryd
