#pragma once

#include "recoveryd/devices/image.h"
#include "recoveryd/devices/range.h"

#include <atomic>
#include <functional>
#include <mutex>

namespace services::recoveryd {

/// Reads a volume whose medium may be damaged: a read never fails, what cannot be read becomes
/// zeros and is remembered, and not tried again. A drive takes seconds to give a bad sector up, so
/// a large read skips what follows one in growing steps, to be read again at the end by
/// retrySkipped(). Small reads are exact to the sector. Shared by all parts of a scan; any thread.
class MediaReader
{
public:
    enum class Policy {
        Sweep, ///< Large reads skip.
        Exact, ///< They do so only in places where nothing at all can be read.
    };

    explicit MediaReader(const Volume &volume, Policy policy = Policy::Sweep);
    MediaReader(const MediaReader &) = delete;
    MediaReader &operator=(const MediaReader &) = delete;

    const Volume &volume() const { return m_volume; }
    qint64 size() const { return m_volume.size(); }

    /// Fills `length` bytes from `offset` on. Returns how many of them became zeros because they
    /// lie outside the volume or could not be read.
    qint64 read(qint64 offset, char *to, qint64 length) const;
    /// The same as a value of exactly `length` bytes; empty above 64 MiB or below 0, so that a
    /// length out of a damaged structure does not decide how much memory is taken.
    QByteArray read(qint64 offset, qint64 length) const;

    /// What could not be read so far, or was skipped.
    Ranges badRanges() const;
    bool hasBadBytes(const Range &range) const;
    /// Bytes of badRanges(). Cheap.
    qint64 lostBytes() const { return m_lostBytes; }
    /// Bytes that were skipped without an attempt. Cheap.
    qint64 skippedBytes() const { return m_skippedBytes; }
    /// Reads what was skipped, sector by sector where need be; what can be read is bad no longer
    /// and is returned. `mayGoOn` is asked before each attempt.
    Ranges retrySkipped(const std::function<bool()> &mayGoOn) const;
    /// The medium no longer answers at all, for instance because it was pulled.
    bool isGone() const { return m_isGone; }

private:
    /// What is bad in one reading.
    struct Losses
    {
        Ranges unreadable;
        Ranges skipped;
    };

    /// Fills a range inside the volume; bytes that became zeros.
    qint64 readInside(qint64 offset, char *to, qint64 length, bool isLarge) const;
    [[nodiscard]] bool readExactly(qint64 offset, char *to, qint64 length) const;
    void readPiecewise(qint64 offset, char *to, qint64 length, bool maySkip, Losses *losses) const;
    void readSectors(qint64 offset, char *to, qint64 length, Losses *losses) const;
    void retryRange(const Range &range, bool isForward, const std::function<bool()> &mayGoOn,
                    Ranges *tried, Losses *losses) const;
    void remember(const Losses &losses) const;
    void forgetSkipped(const Range &read) const;
    void countLosses() const;

    Volume m_volume;
    Policy m_policy;
    mutable std::mutex m_mutex;
    mutable Ranges m_unreadable; ///< These two are guarded by m_mutex, and do not overlap.
    mutable Ranges m_skipped;
    mutable std::atomic<qint64> m_lostBytes{0};
    mutable std::atomic<qint64> m_skippedBytes{0};
    mutable std::atomic<qint64> m_skip{0}; ///< How far the next error skips; 0 after a good read.
    mutable std::atomic<int> m_failedInARow{0};
    mutable std::atomic<bool> m_isGone{false};
};

} // namespace services::recoveryd
