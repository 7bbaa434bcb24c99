#pragma once

#include "recoveryd/xfs/geometry.h"

#include <QByteArray>
#include <QtEndian>

/// Hand-made structures of XFS.
namespace xfsbytes {

/// A structure that is filled field by field; big-endian, as all of XFS on disk.
class Block
{
public:
    explicit Block(int size)
        : m_bytes(size, '\0')
    {}

    template <typename T>
    Block &put(int at, T value)
    {
        qToBigEndian(value, m_bytes.data() + at);
        return *this;
    }
    Block &text(int at, const QByteArray &bytes)
    {
        m_bytes.replace(at, bytes.size(), bytes);
        return *this;
    }
    const QByteArray &bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

constexpr int kBlockSize = 4096;
constexpr quint32 kGroupBlocks = 64;
constexpr quint32 kLogBlock = 32; ///< In the first group.
constexpr quint32 kLogBlocks = 4;

/// A volume of two groups of 64 blocks of 4 KiB, inodes of 512 bytes, its log in the first group.
inline QByteArray superblock(int version = 5)
{
    Block super(512);
    super.text(0, "XFSB").put(4, quint32(kBlockSize)).put(8, quint64(2 * kGroupBlocks));
    super.text(32, QByteArray(16, 'u')).put(48, quint64(kLogBlock)).put(56, quint64(128));
    super.put(84, kGroupBlocks).put(88, quint32(2)).put(96, kLogBlocks);
    super.put(100, quint16(version)).put(102, quint16(512)).put(104, quint16(512));
    super.put(106, quint16(8)).put(120, quint8(12)).put(123, quint8(3)).put(124, quint8(6));
    super.put(216, quint32(version == 5 ? 1 : 0)); // file types in directories
    return super.bytes();
}

inline services::recoveryd::xfs::Geometry geometry(int version = 5)
{
    services::recoveryd::xfs::Geometry geometry;
    const bool isSound = parseSuperblock(superblock(version), &geometry);
    Q_ASSERT(isSound);
    Q_UNUSED(isSound)
    return geometry;
}

/// A record of an extent: first block in the file, first block on the volume, number.
inline QByteArray extent(quint64 logical, quint64 block, quint32 count, bool isUnwritten = false)
{
    Block record(16);
    record.put(0, quint64(isUnwritten) << 63 | logical << 9 | block >> 43);
    return record.put(8, block << 21 | count).bytes();
}

} // namespace xfsbytes
