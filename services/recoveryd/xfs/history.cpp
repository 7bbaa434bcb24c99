#include "recoveryd/xfs/history.h"

#include "recoveryd/xfs/namebook.h"

#include <algorithm>

namespace services::recoveryd::xfs {

namespace {

bool hasContent(const Inode &inode)
{
    return inode.isRegular() && inode.size > 0 && !inode.isSpecial;
}

BlockMap listedExtents(const Inode &inode)
{
    // Only compared with each other; whether the blocks exist does not matter here.
    Geometry any;
    any.blockSize = 512;
    any.agBlocks = 1U << 31;
    any.agBlockLog = 31;
    any.agCount = 1U << 21;
    any.blocks = quint64(any.agBlocks) * any.agCount;
    BlockMap map;
    const View view(inode.fork);
    readExtents(view, inode.extents, any, &map);
    return map;
}

/// Whether the second state has no more all blocks of the first.
bool losesBlocks(const Inode &before, const Inode &after)
{
    if (!before.hasFork || !after.hasFork || before.fork == after.fork ||
        before.format != ForkFormat::Extents || after.format != ForkFormat::Extents)
        return false;
    return !listedExtents(after).covers(listedExtents(before));
}

} // namespace

void History::add(quint64 number, const Inode &inode, bool isFromLog)
{
    Track &track = m_tracks[number];
    const bool isKnown = track.inode.format != ForkFormat::Other || track.inode.lsn != 0;
    const bool isSameLife =
        isKnown && !inode.isFree() && track.inode.generation == inode.generation;
    Inode next = inode;
    if (isSameLife && !next.hasFork && track.inode.hasFork && track.inode.format == next.format &&
        track.inode.extents == next.extents) {
        next.fork = track.inode.fork;
        next.hasFork = true;
    }
    if (isKnown && hasContent(track.inode) &&
        (!isSameLife || next.size < track.inode.size || losesBlocks(track.inode, next)))
        lose(number, track, inode);
    if (!isSameLife)
        track.begin = isKnown && !inode.isFree() ? inode.lsn : 0;
    track.inode = next;
    track.isFromLog = isFromLog;
}

void History::addEarlier(quint64 number, const Inode &inode)
{
    // A later life would have come with an item of its own.
    if (inode.isFree() || m_tracks.contains(number))
        return;
    Inode state = inode;
    state.hasFork = false;
    state.fork.clear();
    add(number, state, true);
}

void History::lose(quint64 number, const Track &track, const Inode &next)
{
    const bool goesOn = !next.isFree() && next.generation == track.inode.generation;
    LostFile lost;
    lost.number = number;
    lost.inode = track.inode;
    lost.begin = track.begin;
    lost.end = goesOn && next.links > 0 ? kNow : next.lsn;
    lost.deletedMs = track.inode.links == 0    ? track.inode.changedMs
                     : goesOn || next.isFree() ? next.changedMs
                                               : Finding::kUnknownTime;
    lost.isFromLog = track.isFromLog;
    m_lostLives.insert(qMakePair(number, track.inode.generation), true);
    m_lost.push_back(lost);
}

void History::loseNow(quint64 number)
{
    Track &track = m_tracks[number];
    if (!hasContent(track.inode))
        return;
    Inode freed;
    freed.lsn = track.inode.lsn;
    lose(number, track, freed);
    track.inode = freed;
}

void History::lose(const LostFile &lost)
{
    m_lostLives.insert(qMakePair(lost.number, lost.inode.generation), true);
    m_lost.push_back(lost);
}

const Inode *History::now(quint64 number) const
{
    const auto it = m_tracks.constFind(number);
    return it == m_tracks.constEnd() ? nullptr : &it->inode;
}

std::vector<LostFile> History::takeLost()
{
    std::vector<LostFile> lost;
    lost.swap(m_lost);
    return lost;
}

std::vector<quint64> History::numbers() const
{
    std::vector<quint64> numbers;
    numbers.reserve(std::size_t(m_tracks.size()));
    for (auto it = m_tracks.constBegin(); it != m_tracks.constEnd(); ++it)
        numbers.push_back(it.key());
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

} // namespace services::recoveryd::xfs
