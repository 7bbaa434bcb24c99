#pragma once

#include "recoveryd/carve/check/unpacker.h"
#include "recoveryd/carve/peek.h"

#include <QByteArray>
#include <QElapsedTimer>

namespace services::recoveryd {

/// What decoding the contents says.
enum class Decoded {
    Good,
    Bad,
    Unknown, ///< Too large or too slow to be looked at in full, or packed in an unknown way.
};

/// What may be spent on decoding one file; a small hostile file can unpack to terabytes.
class DecodingBudget
{
public:
    static constexpr qint64 kBytes = qint64(512) * 1024 * 1024;
    static constexpr qint64 kMilliseconds = 4000;

    DecodingBudget() { m_clock.start(); }

    /// False once it is spent.
    bool take(qint64 bytes)
    {
        m_left -= bytes;
        return m_left >= 0 && m_clock.elapsed() <= kMilliseconds;
    }

private:
    qint64 m_left = kBytes;
    QElapsedTimer m_clock;
};

struct Unpacked
{
    Decoded result = Decoded::Unknown;
    qint64 end = 0;  ///< Behind the last byte of the stream, or where it broke off.
    qint64 size = 0; ///< Decompressed.
    quint32 crc = 0; ///< CRC-32 of the decompressed bytes.
    QByteArray head; ///< The first 512 of them.
};

/// Decompresses the stream at `at` of the file, which ends before `limit`.
Unpacked unpackStream(const Peek &file, qint64 at, qint64 limit, Unpacker::Format format,
                      DecodingBudget *budget);
/// CRC-32 of a stretch; Unknown if the budget is spent.
Decoded crcOf(const Peek &file, qint64 at, qint64 length, DecodingBudget *budget, quint32 *crc);

/// Decodes a JPEG picture of `length` bytes, in a small size.
Decoded decodeJpeg(const Peek &file, qint64 length);

} // namespace services::recoveryd
