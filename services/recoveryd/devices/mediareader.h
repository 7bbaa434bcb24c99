#pragma once

#include "recoveryd/devices/image.h"
#include "recoveryd/devices/range.h"

#include <atomic>
#include <mutex>

namespace services::recoveryd {

/// Reads a volume whose medium may be damaged: a read never fails, what cannot be read becomes
/// zeros and is remembered. Shared by all parts of a scan; any thread.
class MediaReader
{
public:
    explicit MediaReader(const Volume &volume);
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

    /// What could not be read so far.
    Ranges badRanges() const;
    bool hasBadBytes(const Range &range) const;
    /// The medium no longer answers at all, for instance because it was pulled.
    bool isGone() const { return m_isGone; }

private:
    qint64 readPiecewise(qint64 offset, char *to, qint64 length) const;
    void addBad(qint64 offset, qint64 length) const;

    Volume m_volume;
    mutable std::mutex m_mutex;
    mutable Ranges m_bad; ///< Guarded by m_mutex.
    mutable std::atomic<bool> m_isGone{false};
};

} // namespace services::recoveryd
