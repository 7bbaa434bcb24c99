#pragma once

#include <QByteArray>

namespace services::recoveryd {

/// Decompresses one NTFS compression unit into exactly `length` bytes; an end mark before that
/// leaves zeros, as does a chunk that ends early. False on damaged data. Thread-safe.
///
/// Format after "[MS-XCA] Xpress Compression Algorithm", section 2.5 (LZNT1).
[[nodiscard]] bool decompressLznt1(const QByteArray &stored, qint64 length, QByteArray *plain);

} // namespace services::recoveryd
