#include "recoveryd/xfs/namebook.h"

#include "recoveryd/xfs/inode.h"

#include <algorithm>

namespace services::recoveryd::xfs {

namespace {

constexpr std::size_t kMaxNames = 3000000;
constexpr int kMaxTexts = 256 * 1024 * 1024;
constexpr int kMaxDepth = 128;
constexpr int kMaxFolder = 16 * 1024;

quint32 lowHalf(quint64 number)
{
    return quint32(number);
}

quint64 mixed(quint64 value)
{
    value ^= value >> 32;
    value *= 0xD6E8FEB86659FD93ULL;
    return value ^ value >> 32;
}

quint64 keyOf(quint64 parent, const DirectoryEntry &entry)
{
    return mixed(mixed(parent) + lowHalf(entry.child)) ^
           (quint64(qHashBits(entry.name.constData(), size_t(entry.name.size()), 0x51ED)) << 16 |
            quint64(entry.type));
}

} // namespace

void NameBook::add(quint64 parent, const DirectoryEntry &entry, quint64 lsn)
{
    // The root is its own parent; copies of the superblock need not tell which inode it is.
    if (m_root == 0 && entry.name == ".." && entry.child == parent)
        m_root = parent;
    if (entry.name == "." || entry.name == ".." || entry.name.size() > 255)
        return;
    quint64 key = keyOf(parent, entry);
    auto it = m_index.find(key);
    while (it != m_index.end()) {
        const Name &known = m_names[it->second];
        if (known.parent == parent && lowHalf(known.child) == lowHalf(entry.child) &&
            textOf(known) == entry.name)
            break;
        it = m_index.find(++key);
    }
    if (it == m_index.end()) {
        if (m_names.size() >= kMaxNames || m_texts.size() >= kMaxTexts)
            return;
        Name name;
        name.child = entry.child;
        name.parent = parent;
        name.textAt = quint32(m_texts.size());
        name.length = quint8(entry.name.size());
        name.type = entry.type;
        name.isChildWhole = entry.isChildWhole;
        m_texts += entry.name;
        it = m_index.emplace(key, quint32(m_names.size())).first;
        m_names.push_back(name);
    }
    Name &name = m_names[it->second];
    if (entry.isChildWhole && !name.isChildWhole) {
        name.child = entry.child;
        name.isChildWhole = true;
    }
    if (entry.isFreed) {
        name.freed = name.freed == 0 ? lsn : qMin(name.freed, lsn);
        return;
    }
    name.firstLive = name.firstLive == 0 ? lsn : qMin(name.firstLive, lsn);
    name.lastLive = qMax(name.lastLive, lsn);
}

void NameBook::setOwner(qint64 offset, quint64 directory)
{
    if (!m_owners.contains(offset))
        m_owners.insert(offset, directory);
}

void NameBook::prepare()
{
    m_byChild.resize(m_names.size());
    for (std::size_t i = 0; i < m_names.size(); ++i)
        m_byChild[i] = quint32(i);
    std::sort(m_byChild.begin(), m_byChild.end(), [this](quint32 a, quint32 b) {
        return lowHalf(m_names[a].child) < lowHalf(m_names[b].child);
    });
    m_paths.clear();
}

std::vector<quint64> NameBook::children() const
{
    std::vector<quint64> numbers;
    numbers.reserve(m_names.size());
    for (const Name &name : m_names)
        numbers.push_back(name.child);
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    return numbers;
}

QByteArray NameBook::textOf(const Name &name) const
{
    return m_texts.mid(int(name.textAt), name.length);
}

quint64 NameBook::parentOf(const Name &name) const
{
    if ((name.parent & kIsBlock) == 0)
        return name.parent;
    return m_owners.value(qint64(name.parent & ~kIsBlock));
}

/// How well a name fits a life, 0 for not at all; of equal ones the greater nearness is better.
int NameBook::rank(const Name &name, const Life &life, quint64 *nearness) const
{
    if (name.isChildWhole ? name.child != life.number : lowHalf(name.child) != lowHalf(life.number))
        return 0;
    if (name.type != kTypeUnknown && life.type != kTypeUnknown && name.type != life.type)
        return 0;
    const bool isCurrent = name.lastLive == kNow;
    if (life.end == kNow) {
        *nearness = name.lastLive;
        return isCurrent ? 4 : name.firstLive != 0 ? 2 : 1;
    }
    // What is in use now is the name of the number's present life.
    if (isCurrent && life.isNumberInUse && name.firstLive == kNow)
        return 0;
    const quint64 end = life.end == 0 ? kNow : life.end;
    // What is in use after the change that ended the life is the name of the next one.
    if (name.firstLive != 0 && name.firstLive < end) {
        *nearness = qMin(name.lastLive, end - 1);
        return name.firstLive >= life.begin || name.lastLive >= life.begin ? 4 : 2;
    }
    if (name.freed != 0) {
        *nearness = ~name.freed;
        return name.freed >= life.end ? 3 : 1;
    }
    *nearness = ~name.firstLive;
    return 1;
}

const NameBook::Name *NameBook::choose(const Life &life) const
{
    const Name *best = nullptr;
    int bestRank = 0;
    quint64 bestNearness = 0;
    auto it = std::lower_bound(
        m_byChild.begin(), m_byChild.end(), lowHalf(life.number),
        [this](quint32 index, quint32 wanted) { return lowHalf(m_names[index].child) < wanted; });
    for (; it != m_byChild.end() && lowHalf(m_names[*it].child) == lowHalf(life.number); ++it) {
        const Name &name = m_names[*it];
        quint64 nearness = 0;
        const int nameRank = rank(name, life, &nearness);
        if (nameRank == 0 || nameRank < bestRank ||
            (nameRank == bestRank && best && nearness <= bestNearness))
            continue;
        best = &name;
        bestRank = nameRank;
        bestNearness = nearness;
    }
    return best;
}

bool NameBook::place(const Life &life, Finding *finding)
{
    const Name *const name = choose(life);
    if (!name)
        return false;
    finding->name = textOf(*name);
    const quint64 parent = parentOf(*name);
    if (parent == 0)
        return true;
    const FolderPath path = pathOf(parent, life.end == 0 ? name->lastLive : life.end);
    finding->folder = path.folder;
    finding->folderKnowledge = path.knowledge;
    return true;
}

FolderPath NameBook::pathOf(quint64 directory, quint64 when)
{
    std::vector<QByteArray> parts;
    FolderPath path;
    const bool isKept = isExistingDirectory(directory);
    const auto known = m_paths.constFind(directory);
    if (isKept && known != m_paths.constEnd())
        return *known;
    quint64 at = directory;
    int length = 0;
    for (int depth = 0; depth < kMaxDepth && at != m_root && length < kMaxFolder; ++depth) {
        Life life;
        life.number = at;
        life.type = kTypeFolder;
        life.isNumberInUse = isExistingDirectory(at);
        life.end = life.isNumberInUse ? kNow : when;
        const Name *const name = choose(life);
        if (!name)
            break;
        parts.push_back(textOf(*name));
        length += name->length + 1;
        at = parentOf(*name);
    }
    for (auto it = parts.rbegin(); it != parts.rend(); ++it)
        path.folder += (path.folder.isEmpty() ? QByteArray() : QByteArray("/")) + *it;
    path.knowledge = at == m_root            ? Finding::Folder::Full
                     : path.folder.isEmpty() ? Finding::Folder::Unknown
                                             : Finding::Folder::Partial;
    if (isKept)
        m_paths.insert(directory, path);
    return path;
}

} // namespace services::recoveryd::xfs
