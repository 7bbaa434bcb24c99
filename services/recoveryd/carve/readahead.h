#pragma once

#include <QtGlobal>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace services::recoveryd {

/// Reads the next stretch of a run of bytes on a thread of its own while the last one is looked at.
/// All functions are called from one thread; the reading function is called on the other one.
class ReadAhead
{
public:
    using Read = std::function<void(qint64 offset, uchar *to, qint64 length)>;
    using Buffer = std::vector<uchar>;

    explicit ReadAhead(Read read);
    /// Waits for the reading that has begun.
    ~ReadAhead();
    ReadAhead(const ReadAhead &) = delete;
    ReadAhead &operator=(const ReadAhead &) = delete;

    /// Begins to read to `shift` bytes behind the start of a buffer of `capacity` bytes. What was
    /// read before is forgotten.
    void begin(qint64 offset, qint64 length, qint64 shift, qint64 capacity);
    /// Exchanges the buffer for the one with the bytes from `offset` on, waiting for them. Returns
    /// how many they are; 0 if others or none were read.
    [[nodiscard]] qint64 take(qint64 offset, Buffer *buffer);

private:
    enum class State { Idle, Wanted, Reading, Done, Ending };

    void work();

    Read m_read;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    State m_state = State::Idle; ///< Guarded by m_mutex; the rest belongs to who may act on it.
    qint64 m_offset = 0;
    qint64 m_length = 0;
    qint64 m_shift = 0;
    Buffer m_buffer;
    std::thread m_thread; ///< Last, so that it begins with all else in place.
};

} // namespace services::recoveryd
