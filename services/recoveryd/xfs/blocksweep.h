#pragma once

#include "recoveryd/scan/scanner.h"
#include "recoveryd/xfs/geometry.h"

#include <functional>

namespace services::recoveryd::xfs {

/// Looks through stretches of a volume for blocks of inodes and of directory entries.
class BlockSweep
{
public:
    struct Handlers
    {
        std::function<void(qint64 offset, const QByteArray &block)> inodes;
        /// Of the size of a directory's block.
        std::function<void(qint64 offset, const QByteArray &block)> entries;
        std::function<void(qint64 offset, const QByteArray &sector)> superblock;
    };

    BlockSweep(const MediaReader &media, const Geometry &geometry, const Handlers &handlers)
        : m_media(media)
        , m_geometry(geometry)
        , m_handlers(handlers)
    {}

    /// `ranges` begin at blocks. False if the observer ended it.
    [[nodiscard]] bool run(const Ranges &ranges, ScanObserver &observer, qint64 doneBefore);

private:
    void look(const QByteArray &piece, int at, qint64 offset);

    const MediaReader &m_media;
    const Geometry &m_geometry;
    Handlers m_handlers;
};

} // namespace services::recoveryd::xfs
