#pragma once

#include "recoveryd/content/filecontent.h"

namespace services::recoveryd {

/// Decompresses `stored` into exactly `length` bytes; a stream that properly ends less than a
/// sector of 64 KiB earlier (LZNT1: anywhere) is padded with zeros. False on damaged data, of which
/// nothing is trusted. `length` is at most 16 MiB. Thread-safe.
[[nodiscard]] bool decompress(Codec codec, const QByteArray &stored, qint64 length,
                              QByteArray *plain);

} // namespace services::recoveryd
