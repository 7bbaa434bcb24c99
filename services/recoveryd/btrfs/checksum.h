#pragma once

#include <QtGlobal>

namespace services::recoveryd::btrfs {

/// How a volume sums its nodes and the contents of its files, as numbered in the superblock.
enum class ChecksumKind : quint8 { Crc32c = 0, Xxhash = 1, Sha256 = 2, Blake2b = 3 };

/// Bytes of one sum.
int checksumSize(ChecksumKind kind);
/// Whether sums of the kind can be made here; of others it can only be said what they are not.
bool canCheck(ChecksumKind kind);
/// Whether `stored` is the sum of the bytes. False for a kind that cannot be checked. Thread-safe.
bool matchesChecksum(ChecksumKind kind, const char *bytes, qint64 length, const char *stored);

} // namespace services::recoveryd::btrfs
