#pragma once

#include "recoveryd/devices/partitiontable.h"

namespace services {
namespace recoveryd {

/// The entries of a GPT with 512- or 4096-byte sectors: of the first copy whose two checksums hold.
[[nodiscard]] bool readGpt(const Volume &disk, QVector<Partition> *partitions, QString *error);

/// CRC-32 as used by GPT, PNG and ZIP. `previous` continues an earlier sum.
quint32 crc32(const char *bytes, qint64 length, quint32 previous = 0);

} // namespace recoveryd
} // namespace services
