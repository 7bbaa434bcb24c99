#include "recoveryd/ext/undelete/tree.h"

#include <algorithm>
#include <tuple>

namespace services::recoveryd::ext {

namespace {

constexpr int kMaxDepth = 128;
constexpr int kMaxLinks = 16;
constexpr int kMaxAsked = 4096; ///< Names of one number.
constexpr quint8 kDirectoryType = 2;

} // namespace

NameQuestion questionOf(const Life &life, int links)
{
    return {life.number, life.type, life.from, life.to, links, life.isCurrent};
}

void Tree::addBlocks(quint32 number, const BlockMap &map, Order from, Order to)
{
    for (const Run &run : map.runs) {
        m_uses.push_back({run.block, run.count, number, from, to});
        m_longestUse = qMax(m_longestUse, run.count);
    }
    m_areUsesSorted = false;
}

void Tree::forget()
{
    m_folders.clear();
}

void Tree::load(quint32 number)
{
    if (m_loader && m_loaded.insert(number).second)
        m_loader(number);
}

QVector<Place> Tree::placesOf(const NameQuestion &question)
{
    QVector<Place> places;
    const std::vector<int> chosen = choose(question, {});
    for (int index : chosen) {
        const NameBook::Name &name = m_names.name(index);
        const quint32 directory = directoryOf(name);
        Place place;
        place.name = shownName(name, directory);
        if (directory != 0) {
            const Folder folder = folderOf(directory, qMin(name.last, question.to), 0);
            place.folder = folder.path;
            place.knowledge = folder.knowledge;
        }
        places.append(place);
    }
    if (places.isEmpty())
        places.append(Place());
    return places;
}

bool Tree::reportAt(const QVector<Place> &places, const Finding &finding,
                    ScanObserver &observer) const
{
    for (const Place &place : places) {
        Finding named = finding;
        named.name = place.name;
        named.folder = place.folder;
        named.folderKnowledge = place.knowledge;
        if (!observer.found(std::move(named)))
            return false;
    }
    return true;
}

/// The names that fell into the time, the likeliest first, not more than the file had links.
std::vector<int> Tree::choose(const NameQuestion &question, const QVector<quint32> &parents)
{
    using Rank = std::tuple<bool, bool, Order, bool, int>;
    std::vector<Rank> ranked;
    int asked = 0;
    for (int index = m_names.namesOf(question.number); index >= 0 && asked < kMaxAsked; ++asked) {
        const NameBook::Name &name = m_names.name(index);
        const bool isOfType = name.type == 0 || question.type == 0 || name.type == question.type;
        // A removed entry is older than the block in which it is left.
        const bool isInTime = name.isRemnant
                                  ? name.last == kAnyTime || name.last >= question.from
                                  : name.last >= question.from && name.first <= question.to &&
                                        (question.isCurrent || name.first != kNow);
        if (isOfType && isInTime) {
            const quint32 directory = directoryOf(name);
            const bool agrees = parents.contains(directory);
            ranked.emplace_back(agrees, !name.isRemnant, qMin(name.last, question.to),
                                directory != 0, index);
        }
        index = name.next;
    }
    std::sort(ranked.begin(), ranked.end(), std::greater<>());
    std::vector<int> chosen;
    std::vector<std::pair<quint32, QByteArray>> known;
    for (const Rank &rank : ranked) {
        if (int(chosen.size()) >= qBound(1, question.links, kMaxLinks))
            break;
        const NameBook::Name &name = m_names.name(std::get<4>(rank));
        // Only the first of several may be a guess.
        if (!chosen.empty() && name.isRemnant)
            break;
        const auto key = std::make_pair(directoryOf(name), m_names.text(name));
        if (std::find(known.begin(), known.end(), key) != known.end())
            continue;
        known.push_back(key);
        chosen.push_back(std::get<4>(rank));
    }
    return chosen;
}

/// 0 if it is not known.
quint32 Tree::directoryOf(const NameBook::Name &name)
{
    const NameOwner &owner = m_names.owner(name.owner);
    if (owner.self != 0)
        return owner.self;
    const auto bySeed = m_bySeed.find(owner.seed);
    if (owner.seed != 0 && bySeed != m_bySeed.end())
        return bySeed->second;
    return owner.block != 0 ? directoryOfBlock(owner.block, name.last) : 0;
}

quint32 Tree::directoryOfBlock(qint64 block, Order order)
{
    if (!m_areUsesSorted) {
        std::sort(m_uses.begin(), m_uses.end(),
                  [](const BlockUse &a, const BlockUse &b) { return a.block < b.block; });
        m_areUsesSorted = true;
    }
    auto use = std::partition_point(m_uses.begin(), m_uses.end(), [&](const BlockUse &other) {
        return other.block <= block - m_longestUse;
    });
    quint32 found = 0;
    Order distance = kNow;
    for (; use != m_uses.end() && use->block <= block; ++use) {
        if (block >= use->block + use->count)
            continue;
        const Order off = order < use->from ? use->from - order
                          : order > use->to ? order - use->to
                                            : 0;
        if (found == 0 || off < distance) {
            found = use->number;
            distance = off;
        }
    }
    return found;
}

/// The numbers that ".." of the directory has or had.
QVector<quint32> Tree::parentsOf(quint32 number) const
{
    QVector<quint32> parents;
    m_names.forEachSelf(number, [&parents](const NameOwner &owner) {
        if (owner.parent != 0 && !parents.contains(owner.parent))
            parents.append(owner.parent);
    });
    return parents;
}

Tree::Folder Tree::folderOf(quint32 number, Order order, int depth)
{
    if (number == kRootDirectory)
        return {QByteArray(), Finding::Folder::Full};
    const Life *life = m_inodes.lifeAt(number, order);
    const quint64 key = (quint64(number) << 32) |
                        (life ? quint64(quint32(life - m_inodes.lives().data()) + 1) : quint64(0));
    const auto known = m_folders.find(key);
    if (known != m_folders.end())
        return known->second;
    if (depth >= kMaxDepth)
        return Folder();
    // Against directories that are each other's parents.
    m_folders.emplace(key, Folder());

    const bool isCurrent = !life || life->isCurrent;
    if (isCurrent)
        load(number);
    const QVector<quint32> parents = parentsOf(number);
    if (isCurrent)
        for (quint32 parent : parents)
            load(parent);
    NameQuestion question;
    question.number = number;
    question.type = kDirectoryType;
    question.isCurrent = isCurrent;
    if (life) {
        question.from = life->from;
        question.to = life->to;
    }
    Folder folder;
    const std::vector<int> chosen = choose(question, parents);
    if (!chosen.empty()) {
        const NameBook::Name &name = m_names.name(chosen.front());
        const quint32 directory = directoryOf(name);
        const Folder above = directory != 0 && directory != number
                                 ? folderOf(directory, qMin(name.last, question.to), depth + 1)
                                 : Folder();
        folder.path = above.path.isEmpty() ? shownName(name, directory)
                                           : above.path + '/' + shownName(name, directory);
        folder.knowledge = above.knowledge == Finding::Folder::Full ? Finding::Folder::Full
                                                                    : Finding::Folder::Partial;
    }
    m_folders[key] = folder;
    return folder;
}

QByteArray Tree::shownName(const NameBook::Name &name, quint32 directory) const
{
    const QByteArray text = m_names.text(name);
    if (m_encrypted.count(directory) == 0)
        return text;
    return QByteArray("加密名称-") +
           text.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals).left(80);
}

} // namespace services::recoveryd::ext
