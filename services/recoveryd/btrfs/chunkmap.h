#pragma once

#include "recoveryd/btrfs/layout.h"
#include "recoveryd/devices/range.h"

#include <QByteArray>
#include <QVector>

#include <map>

namespace services::recoveryd::btrfs {

/// Where the addresses that a file system uses are on the one device that is there. An address is
/// never given out twice, so chunks of all times go into one map.
class ChunkMap
{
public:
    /// A stretch of addresses; `physical` is -1 where it is on no chunk known, or on another
    /// device.
    struct Part
    {
        qint64 physical = -1;
        qint64 length = 0;
    };

    void setDevice(quint64 id) { m_device = id; }
    quint64 device() const { return m_device; }

    /// Adds a chunk item. False if it makes no sense; a chunk that is known stays.
    bool add(quint64 address, const char *item, int size);
    /// Adds the chunks of a superblock.
    void addAll(const QByteArray &systemChunks);
    /// Adds a piece of the device that belongs to a chunk; used where no chunk item is found. Of a
    /// chunk on several devices nothing is concluded.
    void addDeviceExtent(quint64 device, qint64 physical, quint64 address, qint64 length);

    /// The devices that any chunk is on, ascending.
    QVector<quint64> devices() const;
    bool isEmpty() const { return m_chunks.empty() && m_extents.empty(); }
    /// How many copies there can be of an address on this device.
    int copies(quint64 address) const;
    /// The parts of `length` bytes from an address on, of one copy. At most 65536 of them.
    QVector<Part> map(quint64 address, qint64 length, int copy = 0) const;
    /// Parts of the device that chunks with any of the `flags` have.
    Ranges ranges(quint64 flags, bool allCopies) const;
    /// Calls `visit` with start and length of the addresses of each chunk.
    template <typename Visit>
    void forEach(Visit visit) const
    {
        for (const auto &entry : m_chunks)
            visit(entry.first, entry.second.length);
    }

private:
    struct Stripe
    {
        quint64 device = 0;
        qint64 start = 0;
    };
    struct Chunk
    {
        qint64 length = 0;
        qint64 stripeLength = 65536;
        quint64 flags = 0;
        int subStripes = 1;
        QVector<Stripe> stripes;
    };
    struct Found
    {
        quint64 start = 0;
        const Chunk *chunk = nullptr;
    };

    static bool isStriped(const Chunk &chunk);
    static bool isOnOneDevice(const Chunk &chunk);
    static int dataStripes(const Chunk &chunk);
    Found find(quint64 address) const;
    Part partOf(const Found &found, quint64 address, qint64 length, int copy) const;
    Part stripedPart(const Chunk &chunk, qint64 offset, qint64 length, int copy) const;

    quint64 m_device = 1;
    std::map<quint64, Chunk> m_chunks;
    std::map<quint64, Chunk> m_extents; ///< Chunks that are only known by pieces of the device.
};

} // namespace services::recoveryd::btrfs
