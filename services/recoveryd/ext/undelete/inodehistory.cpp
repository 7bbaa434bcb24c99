#include "recoveryd/ext/undelete/inodehistory.h"

#include <QtEndian>

#include <algorithm>

namespace services::recoveryd::ext {

namespace {

constexpr size_t kMaxLives = 3 * 1000 * 1000;
constexpr size_t kMaxStates = 1000 * 1000; // about 140 bytes each
constexpr int kMaxStatesOfLife = 48;
constexpr int kEntrySize = 12;

quint64 identity(quint32 number, quint32 generation, qint32 birth)
{
    return (quint64(number) << 32 | generation) ^ (quint64(quint32(birth)) * 0x9E3779B97F4A7C15u);
}

/// Whether every extent of the root `old` lies within one of the root `now`.
bool coversExtents(const Inode &now, const Inode &old)
{
    const auto field = [](const Inode &inode, int at) {
        return qFromLittleEndian<quint16>(inode.map.data() + at);
    };
    if (field(now, 6) != 0 || field(old, 6) != 0)
        return now.map == old.map;
    struct Extent
    {
        qint64 logical, count, block;
        Extent(const Inode &inode, int index)
        {
            const char *at = inode.map.data() + 12 + index * kEntrySize;
            logical = qFromLittleEndian<quint32>(at);
            count = qFromLittleEndian<quint16>(at + 4);
            block = (qint64(qFromLittleEndian<quint16>(at + 6)) << 32) |
                    qFromLittleEndian<quint32>(at + 8);
        }
    };
    for (int i = 0; i < qMin<int>(4, field(old, 2)); ++i) {
        const Extent a(old, i);
        bool isCovered = false;
        for (int k = 0; k < qMin<int>(4, field(now, 2)); ++k) {
            const Extent b(now, k);
            isCovered = isCovered ||
                        (a.logical >= b.logical && a.logical + a.count <= b.logical + b.count &&
                         a.block - a.logical == b.block - b.logical);
        }
        if (!isCovered)
            return false;
    }
    return true;
}

bool coversPointers(const Inode &now, const Inode &old)
{
    for (size_t at = 0; at < old.map.size(); at += 4) {
        const quint32 block = qFromLittleEndian<quint32>(old.map.data() + at);
        if (block != 0 && block != qFromLittleEndian<quint32>(now.map.data() + at))
            return false;
    }
    return true;
}

/// Whether what `old` had is still all there in `now`, as in a file that has grown.
bool covers(const Inode &now, const Inode &old)
{
    constexpr quint32 kKinds = Inode::Extents | Inode::InlineData;
    if (now.size < old.size || (now.flags & kKinds) != (old.flags & kKinds) ||
        (now.links == 0) != (old.links == 0))
        return false;
    if (now.is(Inode::InlineData))
        return now.map == old.map && now.size == old.size && now.modifiedMs == old.modifiedMs;
    return now.is(Inode::Extents) ? coversExtents(now, old) : coversPointers(now, old);
}

/// On the list of orphans the field holds the number of the next one.
bool isTime(quint32 seconds, const Inode &inode)
{
    return seconds != 0 && qint64(seconds) + 86400 >= qint64(quint32(inode.birth)) &&
           seconds > 100000000;
}

} // namespace

Life *InodeHistory::lifeOf(quint32 number, const Inode &inode)
{
    const quint64 hash = identity(number, inode.generation, inode.birth);
    Life *found = nullptr;
    m_byIdentity.find(hash, [&](int index) {
        Life &life = m_lives[size_t(index - 1)];
        if (life.number == number && life.generation == inode.generation &&
            life.birth == inode.birth && life.type == inode.entryType())
            found = &life;
        return found != nullptr;
    });
    if (found || m_lives.size() >= kMaxLives)
        return found;
    Life life;
    life.number = number;
    life.generation = inode.generation;
    life.birth = inode.birth;
    life.type = inode.entryType();
    m_lives.push_back(life);
    m_byIdentity.insert(hash, int(m_lives.size()));
    return &m_lives.back();
}

void InodeHistory::add(quint32 number, const Inode &inode, Order order, quint32 at, quint32 slot)
{
    Life *life = lifeOf(number, inode);
    if (!life)
        return;
    if (inode.links > 0) {
        life->first = qMin(life->first, order);
        life->last = qMax(life->last, order);
    } else {
        life->goneAt = qMin(life->goneAt, order);
        if (isTime(inode.deletionTime, inode))
            life->deletionTime = inode.deletionTime;
    }
    const bool isWanted = inode.isRegular() || inode.isDirectory();
    if (isWanted && inode.hasMap() && inode.size > 0)
        addState(life, {inode, order, order, at, slot, -1});
}

/// Versions are not taken in the order of time: the journal is a ring.
void InodeHistory::addState(Life *life, const InodeState &added)
{
    int count = 0;
    for (int index = life->states; index >= 0; index = m_states[size_t(index)].next, ++count) {
        InodeState &known = m_states[size_t(index)];
        if (added.last >= known.last && covers(added.inode, known.inode)) {
            const int next = known.next;
            const Order first = qMin(known.first, added.first);
            known = added;
            known.first = first;
            known.next = next;
            return;
        }
        if (added.last <= known.last && covers(known.inode, added.inode)) {
            known.first = qMin(known.first, added.first);
            return;
        }
    }
    if (count >= kMaxStatesOfLife || m_states.size() >= kMaxStates)
        return;
    m_states.push_back(added);
    m_states.back().next = life->states;
    life->states = int(m_states.size()) - 1;
}

void InodeHistory::addCurrent(quint32 number, const Inode &inode, bool isInUse)
{
    Life *life = lifeOf(number, inode);
    if (!life)
        return;
    life->isCurrent = isInUse && inode.links > 0;
    if (life->isCurrent)
        life->first = qMin(life->first, kNow - 1);
    else if (isTime(inode.deletionTime, inode))
        life->deletionTime = inode.deletionTime;
    // What the volume has now is newer than all transactions.
    if (life->isCurrent) {
        life->last = kNow;
        // Earlier states are of interest only where they have what this one has not.
        if (life->states >= 0)
            addState(life, {inode, kNow, kNow, 0, 0, -1});
    } else if (life->goneAt == kNow && life->last == kAnyTime) {
        life->goneAt = kNow - 1;
    }
}

void InodeHistory::sortStates(Life *life)
{
    std::vector<int> order;
    for (int index = life->states; index >= 0; index = m_states[size_t(index)].next)
        order.push_back(index);
    std::sort(order.begin(), order.end(),
              [this](int a, int b) { return m_states[size_t(a)].last > m_states[size_t(b)].last; });
    for (size_t i = 0; i < order.size(); ++i)
        m_states[size_t(order[i])].next = i + 1 < order.size() ? order[i + 1] : -1;
    life->states = order.empty() ? -1 : order.front();
}

void InodeHistory::finish(const Journal &journal)
{
    m_byIdentity = HashIndex();
    const auto age = [](const Life &life) {
        // One that was only seen after its end stands by that.
        const Order seen = life.last != kAnyTime ? life.first : life.goneAt;
        return std::make_pair(life.number, seen);
    };
    std::sort(m_lives.begin(), m_lives.end(),
              [&age](const Life &a, const Life &b) { return age(a) < age(b); });
    for (size_t i = 0; i < m_lives.size(); ++i) {
        Life &life = m_lives[i];
        sortStates(&life);
        if (i == 0 || m_lives[i - 1].number != life.number)
            continue;
        Life &before = m_lives[i - 1];
        const Order end = before.last != kAnyTime ? before.last : before.goneAt;
        const Order born = life.birth != 0 ? journal.orderAt(quint32(life.birth)) : kNow;
        life.from = qMin(qMax(end + 1, born), qMax(life.first, end + 1));
        before.to = life.from - 1;
        before.goneAt = qMin(before.goneAt, life.first);
    }
}

bool InodeHistory::hasNumber(quint32 number) const
{
    const auto life =
        std::partition_point(m_lives.begin(), m_lives.end(),
                             [number](const Life &other) { return other.number < number; });
    return life != m_lives.end() && life->number == number;
}

const Life *InodeHistory::lifeAt(quint32 number, Order order) const
{
    const auto first =
        std::partition_point(m_lives.begin(), m_lives.end(),
                             [number](const Life &life) { return life.number < number; });
    const Life *found = nullptr;
    for (auto life = first; life != m_lives.end() && life->number == number; ++life)
        if (!found || life->from <= order)
            found = &*life;
    return found;
}

} // namespace services::recoveryd::ext
