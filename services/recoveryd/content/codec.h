#pragma once

#include "recoveryd/content/filecontent.h"

namespace services::recoveryd {

/// Decompresses `stored` into exactly `length` bytes; a stream that ends earlier is padded with
/// zeros only where the format says so (LZNT1). False on damaged data, of which nothing is trusted.
/// `length` is at most 16 MiB. Thread-safe.
[[nodiscard]] bool decompress(Codec codec, const QByteArray &stored, qint64 length,
                              QByteArray *plain);

} // namespace services::recoveryd
