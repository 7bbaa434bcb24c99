#include "recoveryd/ext/undelete/inodeuse.h"

namespace services::recoveryd::ext {

quint32 InodeUse::usedCount(quint32 group) const
{
    const Layout &layout = m_blocks.layout();
    const Group &found = layout.groups()[group];
    return found.isInodeTableUnwritten ? 0 : layout.super().inodesPerGroup - found.unusedInodes;
}

bool InodeUse::isInUse(quint32 number) const
{
    const Layout &layout = m_blocks.layout();
    if (number == 0 || number > layout.inodeLimit())
        return false;
    const quint32 group = (number - 1) / layout.super().inodesPerGroup;
    const quint32 within = (number - 1) % layout.super().inodesPerGroup;
    if (group >= layout.groups().size() || within >= usedCount(group))
        return false;
    if (m_group != group) {
        m_group = group;
        m_bitmap = m_blocks.current(layout.groups()[group].inodeBitmap);
        // A bitmap of zeros contradicts a table with inodes in use: it could not be read.
        if (m_bitmap.count('\0') == m_bitmap.size())
            m_bitmap.clear();
    }
    return m_bitmap.isEmpty() || ((m_bitmap.at(int(within / 8)) >> (within % 8)) & 1) != 0;
}

} // namespace services::recoveryd::ext
