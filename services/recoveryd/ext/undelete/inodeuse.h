#pragma once

#include "recoveryd/ext/undelete/blockmap.h"

namespace services::recoveryd::ext {

/// Which inodes the volume has in use, by its bitmaps. Keeps the bitmap of the last group: ask in
/// ascending order. One thread.
class InodeUse
{
public:
    explicit InodeUse(const Blocks &blocks)
        : m_blocks(blocks)
    {}

    bool isInUse(quint32 number) const;
    /// How many inodes at the start of the group's table may be in use.
    quint32 usedCount(quint32 group) const;

private:
    const Blocks &m_blocks;
    mutable qint64 m_group = -1;
    mutable QByteArray m_bitmap; ///< Empty if it cannot be trusted.
};

} // namespace services::recoveryd::ext
