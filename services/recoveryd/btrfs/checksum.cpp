#include "recoveryd/btrfs/checksum.h"

#include "recoveryd/btrfs/layout.h"
#include "recoveryd/devices/crc32c.h"

#include <QCryptographicHash>

namespace services::recoveryd::btrfs {

namespace {

// XXH64 with the seed 0, after the format description of the algorithm ("xxhash_spec").
constexpr quint64 kPrime1 = 0x9E3779B185EBCA87u;
constexpr quint64 kPrime2 = 0xC2B2AE3D27D4EB4Fu;
constexpr quint64 kPrime3 = 0x165667B19E3779F9u;
constexpr quint64 kPrime4 = 0x85EBCA77C2B2AE63u;
constexpr quint64 kPrime5 = 0x27D4EB2F165667C5u;

quint64 rotated(quint64 value, int bits)
{
    return (value << bits) | (value >> (64 - bits));
}

quint64 mixed(quint64 lane, quint64 input)
{
    return rotated(lane + input * kPrime2, 31) * kPrime1;
}

quint64 xxhash64(const char *bytes, qint64 length)
{
    const char *const end = bytes + length;
    quint64 hash = kPrime5;
    if (length >= 32) {
        quint64 lanes[4] = {kPrime1 + kPrime2, kPrime2, 0, 0 - kPrime1};
        for (; end - bytes >= 32; bytes += 32)
            for (int i = 0; i < 4; ++i)
                lanes[i] = mixed(lanes[i], le64(bytes + 8 * i));
        hash = rotated(lanes[0], 1) + rotated(lanes[1], 7) + rotated(lanes[2], 12) +
               rotated(lanes[3], 18);
        for (quint64 lane : lanes)
            hash = (hash ^ mixed(0, lane)) * kPrime1 + kPrime4;
    }
    hash += quint64(length);
    for (; end - bytes >= 8; bytes += 8)
        hash = rotated(hash ^ mixed(0, le64(bytes)), 27) * kPrime1 + kPrime4;
    for (; end - bytes >= 4; bytes += 4)
        hash = rotated(hash ^ (le32(bytes) * kPrime1), 23) * kPrime2 + kPrime3;
    for (; bytes < end; ++bytes)
        hash = rotated(hash ^ (quint8(*bytes) * kPrime5), 11) * kPrime1;
    hash = (hash ^ (hash >> 33)) * kPrime2;
    hash = (hash ^ (hash >> 29)) * kPrime3;
    return hash ^ (hash >> 32);
}

bool matchesSha256(const char *bytes, qint64 length, const char *stored)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(bytes, int(length));
    return std::memcmp(hash.result().constData(), stored, 32) == 0;
}

} // namespace

int checksumSize(ChecksumKind kind)
{
    switch (kind) {
    case ChecksumKind::Crc32c:
        return 4;
    case ChecksumKind::Xxhash:
        return 8;
    case ChecksumKind::Sha256:
    case ChecksumKind::Blake2b:
        break;
    }
    return 32;
}

bool canCheck(ChecksumKind kind)
{
    return kind != ChecksumKind::Blake2b;
}

bool matchesChecksum(ChecksumKind kind, const char *bytes, qint64 length, const char *stored)
{
    switch (kind) {
    case ChecksumKind::Crc32c:
        return ~crc32c(~quint32(0), bytes, length) == le32(stored);
    case ChecksumKind::Xxhash:
        return xxhash64(bytes, length) == le64(stored);
    case ChecksumKind::Sha256:
        return matchesSha256(bytes, length, stored);
    case ChecksumKind::Blake2b:
        break;
    }
    return false;
}

} // namespace services::recoveryd::btrfs
