#include "recoveryd/xfs/freespace.h"

#include "recoveryd/xfs/fork.h"

#include <algorithm>

namespace services::recoveryd::xfs {

namespace {

/// What inodes and the file system's own structures use, as far as it is told by inodes.
bool usedByInodes(const XfsVolume &volume, Ranges *used)
{
    constexpr int kMaxRanges = 20000000;
    const Geometry &geometry = volume.geometry();
    InodeWalk walk(volume);
    walk.readTrees();
    for (quint32 ag = 0; ag < geometry.agCount; ++ag) {
        if (!walk.isGroupKnown(ag))
            return false;
        // The headers, the first blocks of the group's trees and their reserve.
        used->append({geometry.agStart(ag),
                      4 * qint64(geometry.sectorSize) + 8 * qint64(geometry.blockSize)});
    }
    const qint64 log = geometry.logStart == 0 ? -1 : geometry.offsetOfBlock(geometry.logStart);
    if (log >= 0)
        used->append({log, qint64(geometry.logBlocks) * geometry.blockSize});
    const ForkReader forks(volume, nullptr);
    return walk.run(
        [&](quint64 number, const View &bytes, bool isAllocated) {
            used->append({geometry.offsetOfInode(number), geometry.inodeSize});
            Inode inode;
            if (!isAllocated || !parseInode(bytes, &inode))
                return true;
            for (const Mapped &mapped : forks.read(number, inode, geometry).extents)
                used->append({geometry.offsetOfBlock(mapped.block),
                              qint64(mapped.count) * geometry.blockSize});
            return used->size() < kMaxRanges;
        },
        [&volume](qint64) { return !volume.media().isGone(); });
}

} // namespace

bool freeOfGroup(const XfsVolume &volume, quint32 ag, Ranges *ranges)
{
    const Geometry &geometry = volume.geometry();
    Ranges found;
    const bool isWhole = volume.forEachFree(ag, [&](quint32 block, quint32 count) {
        found.append({geometry.offsetInAg(ag, block), qint64(count) * geometry.blockSize});
    });
    if (isWhole)
        *ranges += found;
    return isWhole;
}

bool freeOfVolume(const XfsVolume &volume, Ranges *ranges, QString *error)
{
    const Geometry &geometry = volume.geometry();
    Ranges damaged;
    Ranges free;
    for (quint32 ag = 0; ag < geometry.agCount; ++ag)
        if (!freeOfGroup(volume, ag, &free))
            damaged.append(
                {geometry.agStart(ag), qint64(geometry.blocksOf(ag)) * geometry.blockSize});
    if (!damaged.isEmpty()) {
        Ranges used;
        if (!usedByInodes(volume, &used)) {
            if (error)
                *error = QStringLiteral("XFS 空闲空间索引和 inode 索引均已损坏");
            return false;
        }
        free += subtracted(damaged, joinedRanges(used));
    }
    *ranges = joinedRanges(free);
    return true;
}

} // namespace services::recoveryd::xfs
