#pragma once

#include <QtGlobal>

namespace services::recoveryd {

/// CRC-32C as file systems use it: reflected, without a final inversion. `crc` is the value so far;
/// a checksum from its beginning usually starts with ~0.
quint32 crc32c(quint32 crc, const char *bytes, qint64 length);

/// The value that becomes `crc` by these bytes: the inverse of crc32c().
quint32 crc32cBefore(quint32 crc, const char *bytes, qint64 length);

/// The little-endian number of four bytes by which `before` becomes `after`.
quint32 crc32cNumberBetween(quint32 before, quint32 after);

} // namespace services::recoveryd
