#include "recoveryd/ext/undelete/namebook.h"

#include <cstring>

namespace services::recoveryd::ext {

namespace {

constexpr size_t kMaxOwners = 4 * 1000 * 1000;
constexpr size_t kMaxNames = 4 * 1000 * 1000;
constexpr size_t kMaxText = 256 * 1024 * 1024;

quint64 mixed(quint64 a, quint64 b)
{
    quint64 hash = a * 0x9E3779B97F4A7C15u ^ (b + 0x7F4A7C159E3779B9u);
    hash ^= hash >> 29;
    return hash * 0xBF58476D1CE4E5B9u;
}

} // namespace

quint32 NameBook::addOwner(const NameOwner &owner)
{
    const quint64 hash =
        mixed(mixed(quint64(owner.block), owner.self), (quint64(owner.parent) << 32) | owner.seed);
    int found = 0;
    m_ownersByHash.find(hash, [&](int index) {
        const NameOwner &known = m_owners[size_t(index - 1)];
        if (known.block == owner.block && known.self == owner.self &&
            known.parent == owner.parent && known.seed == owner.seed)
            found = index;
        return found != 0;
    });
    if (found == 0 && m_owners.size() < kMaxOwners) {
        m_owners.push_back(owner);
        found = int(m_owners.size());
        m_ownersByHash.insert(hash, found);
        if (owner.self != 0 && owner.parent != 0)
            m_ownersBySelf.insert(owner.self, found);
    }
    return quint32(qMax(0, found - 1));
}

int NameBook::find(quint64 hash, quint32 owner, const Entry &entry) const
{
    int found = -1;
    m_namesByHash.find(hash, [&](int index) {
        const Name &known = m_names[size_t(index - 1)];
        if (known.owner == owner && known.child == entry.number && known.type == entry.type &&
            known.isRemnant == entry.isRemnant && known.length == entry.name.size() &&
            std::memcmp(m_texts.data() + known.textAt, entry.name.constData(), known.length) == 0)
            found = index - 1;
        return found >= 0;
    });
    return found;
}

void NameBook::add(quint32 owner, const Entry &entry, Order order)
{
    if (owner >= m_owners.size() || entry.name.size() > 255)
        return;
    const quint64 hash = mixed(mixed(owner, entry.number),
                               qHashBits(entry.name.constData(), size_t(entry.name.size())));
    const int known = find(hash, owner, entry);
    if (known >= 0) {
        Name &name = m_names[size_t(known)];
        name.first = qMin(name.first, order);
        name.last = qMax(name.last, order);
        return;
    }
    if (m_names.size() >= kMaxNames || m_texts.size() + 255 > kMaxText)
        return;
    Name name;
    name.child = entry.number;
    name.owner = owner;
    name.first = name.last = order;
    name.textAt = quint32(m_texts.size());
    name.length = quint8(entry.name.size());
    name.type = entry.type;
    name.isRemnant = entry.isRemnant;
    m_texts.insert(m_texts.end(), entry.name.constData(),
                   entry.name.constData() + entry.name.size());
    int head = -1;
    m_heads.find(entry.number, [&](int index) {
        if (m_firsts[size_t(index - 1)].first == entry.number)
            head = index - 1;
        return head >= 0;
    });
    if (head < 0) {
        m_firsts.emplace_back(entry.number, -1);
        head = int(m_firsts.size()) - 1;
        m_heads.insert(entry.number, head + 1);
    }
    name.next = m_firsts[size_t(head)].second;
    m_firsts[size_t(head)].second = int(m_names.size());
    m_names.push_back(name);
    m_namesByHash.insert(hash, int(m_names.size()));
}

QByteArray NameBook::text(const Name &name) const
{
    return QByteArray(m_texts.data() + name.textAt, name.length);
}

int NameBook::namesOf(quint32 number) const
{
    int first = -1;
    m_heads.find(number, [&](int index) {
        if (m_firsts[size_t(index - 1)].first == number)
            first = m_firsts[size_t(index - 1)].second;
        return first >= 0;
    });
    return first;
}

} // namespace services::recoveryd::ext
