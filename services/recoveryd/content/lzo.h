#pragma once

#include <QByteArray>

namespace services::recoveryd {

/// Decompresses an extent as Btrfs stores it: its length as a whole, then segments of one sector of
/// plain data each, whose 4-byte headers never cross a sector. What the segments leave of `length`
/// becomes zeros. False on damaged data. Thread-safe.
///
/// Format after the Linux kernel's fs/btrfs documentation and "LZO stream format as understood by
/// Linux's LZO decompressor" (Documentation/staging/lzo.rst).
[[nodiscard]] bool decompressLzo(const QByteArray &stored, qint64 length, QByteArray *plain);

/// Decompresses one LZO1X stream. Returns how many bytes it gave, at most `capacity`; -1 on damaged
/// data.
qint64 decompressLzo1x(const char *from, qint64 length, char *to, qint64 capacity);

} // namespace services::recoveryd
