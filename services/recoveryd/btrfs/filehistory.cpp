#include "recoveryd/btrfs/filehistory.h"

#include <QSet>

#include <algorithm>
#include <tuple>

namespace services::recoveryd::btrfs {

namespace {

constexpr int kMaxVersions = 16;
constexpr int kMaxCandidates = 4096;
constexpr quint32 kFormatMask = 0170000;
constexpr quint32 kRegular = 0100000;

/// Stretches of addresses or offsets, ascending, without overlap.
class Stretches
{
public:
    bool holds(quint64 start, quint64 end) const
    {
        const auto it = firstBehind(start);
        return start >= end || (it != m_parts.end() && it->first <= start && it->second >= end);
    }
    void add(quint64 start, quint64 end)
    {
        if (start >= end)
            return;
        auto from = std::partition_point(m_parts.begin(), m_parts.end(),
                                         [start](const Part &part) { return part.second < start; });
        auto to = from;
        for (; to != m_parts.end() && to->first <= end; ++to) {
            start = qMin(start, to->first);
            end = qMax(end, to->second);
        }
        from = m_parts.erase(from, to);
        m_parts.insert(from, {start, end});
    }

private:
    using Part = std::pair<quint64, quint64>;

    std::vector<Part>::const_iterator firstBehind(quint64 start) const
    {
        return std::partition_point(m_parts.cbegin(), m_parts.cend(),
                                    [start](const Part &part) { return part.second <= start; });
    }

    std::vector<Part> m_parts;
};

constexpr quint64 kEnd = ~quint64(0);

/// Which offsets of the file the leaf of a piece speaks for.
std::pair<quint64, quint64> coverage(const Piece &piece)
{
    if (piece.isFromLog)
        return {0, 0};
    const bool isFirst = !piece.isOpenBefore || piece.hasFacts || !piece.names.isEmpty();
    const quint64 first = isFirst                   ? 0
                          : piece.extents.isEmpty() ? kEnd
                                                    : piece.extents.first().offset;
    if (!piece.isOpenBehind)
        return {first, kEnd};
    return {first, piece.extents.isEmpty() ? 0 : piece.extents.last().offset + 1};
}

quint64 plainBytes(const QVector<ExtentItem> &extents)
{
    quint64 sum = 0;
    for (const ExtentItem &extent : extents)
        if (extent.kind == ExtentItem::Kind::Inline || extent.address != 0)
            sum += extent.length;
    return sum;
}

/// An inline extent is the whole file.
bool isInline(const QVector<ExtentItem> &extents)
{
    return extents.size() == 1 && extents.first().kind == ExtentItem::Kind::Inline;
}

/// Puts a file together out of the pieces of its leaves.
class Assembler
{
public:
    explicit Assembler(const QVector<Piece> &pieces)
        : m_pieces(pieces)
    {}

    FileVersion version(const Piece &piece) const
    {
        FileVersion version;
        version.inode = piece.inode;
        version.tree = piece.tree;
        version.facts = piece.facts;
        version.isLive = piece.isLive;
        version.lastSeen = piece.lastGeneration;
        version.names = piece.names.isEmpty() ? namesNear(piece) : piece.names;
        version.extents = piece.extents;
        // A leaf of a subvolume that has the inode's first and last item has all of it; one of the
        // log has what has changed.
        const bool isAll = !piece.isOpenBehind && !piece.isFromLog;
        version.isComplete = isAll || isInline(version.extents) ||
                             plainBytes(version.extents) == piece.facts.storedBytes;
        if (!version.isComplete)
            complete(piece, &version);
        return version;
    }

private:
    QVector<const Piece *> candidates(const Piece &piece) const
    {
        QVector<const Piece *> others;
        for (const Piece &other : m_pieces)
            if (&other != &piece && others.size() < kMaxCandidates && !other.extents.isEmpty())
                others.append(&other);
        // Leaves of the same subvolume as they were then, the latest first; then later ones.
        const auto rank = [&piece](const Piece *other) {
            const bool isBefore = other->firstGeneration <= piece.lastGeneration;
            return std::make_tuple(other->tree != piece.tree, !isBefore,
                                   isBefore ? ~other->lastGeneration : other->firstGeneration);
        };
        std::stable_sort(others.begin(), others.end(),
                         [&rank](const Piece *a, const Piece *b) { return rank(a) < rank(b); });
        return others;
    }

    static void cover(const Piece &piece, const QVector<ExtentItem> &extents, Stretches *covered)
    {
        const auto stretch = coverage(piece);
        covered->add(stretch.first, stretch.second);
        for (const ExtentItem &extent : extents)
            covered->add(extent.offset, extent.offset + 1);
    }

    void complete(const Piece &piece, FileVersion *version) const
    {
        Stretches covered;
        cover(piece, version->extents, &covered);
        quint64 sum = plainBytes(version->extents);
        for (const Piece *other : candidates(piece)) {
            if (sum >= piece.facts.storedBytes)
                break;
            QVector<ExtentItem> added;
            for (const ExtentItem &extent : other->extents)
                if (!covered.holds(extent.offset, extent.offset + 1) &&
                    extent.generation <= piece.facts.transaction)
                    added.append(extent);
            version->extents += added;
            sum += plainBytes(added);
            cover(*other, added, &covered);
        }
        std::stable_sort(
            version->extents.begin(), version->extents.end(),
            [](const ExtentItem &a, const ExtentItem &b) { return a.offset < b.offset; });
        version->isComplete = sum == piece.facts.storedBytes;
    }

    QVector<Reference> namesNear(const Piece &piece) const
    {
        const Piece *best = nullptr;
        const auto distance = [&piece](const Piece &other) {
            const quint64 a = other.lastGeneration;
            const quint64 b = piece.lastGeneration;
            return std::make_tuple(other.tree != piece.tree, a > b ? a - b : b - a);
        };
        for (const Piece &other : m_pieces) {
            const bool isOther = other.hasFacts && other.facts.generation != piece.facts.generation;
            if (!other.names.isEmpty() && !isOther && (!best || distance(other) < distance(*best)))
                best = &other;
        }
        return best ? best->names : QVector<Reference>();
    }

    const QVector<Piece> &m_pieces;
};

/// What versions of one file taken before hold.
class Held
{
public:
    bool holds(const FileVersion &version) const
    {
        for (const ExtentItem &extent : version.extents) {
            const auto stretch = stretchOf(extent);
            if (extent.isStored() && extent.kind == ExtentItem::Kind::Regular &&
                !m_stored.holds(stretch.first, stretch.second))
                return false;
            if (extent.kind == ExtentItem::Kind::Inline && !m_inline.contains(extent.inlineHash))
                return false;
        }
        return true;
    }
    void add(const FileVersion &version)
    {
        for (const ExtentItem &extent : version.extents) {
            const auto stretch = stretchOf(extent);
            if (extent.isStored() && extent.kind == ExtentItem::Kind::Regular)
                m_stored.add(stretch.first, stretch.second);
            if (extent.kind == ExtentItem::Kind::Inline)
                m_inline.insert(extent.inlineHash);
        }
    }

private:
    static std::pair<quint64, quint64> stretchOf(const ExtentItem &extent)
    {
        if (extent.compression != 0)
            return {extent.address, extent.address + extent.storedLength};
        return {extent.address + extent.skip, extent.address + extent.skip + extent.length};
    }
    Stretches m_stored;
    QSet<quint32> m_inline; ///< Hashes of the bytes.
};

/// Pieces with the facts of regular files, one for each state: the live ones, then the newest.
QVector<const Piece *> states(const QVector<Piece> &pieces)
{
    QVector<const Piece *> states;
    for (const Piece &piece : pieces)
        if (piece.hasFacts && (piece.facts.mode & kFormatMask) == kRegular &&
            piece.facts.generation != 0)
            states.append(&piece);
    // Within a transaction the log has a state for each time that the file was synchronised.
    const auto rank = [](const Piece *piece) {
        return std::make_tuple(piece->facts.generation, !piece->isLive, ~piece->lastGeneration,
                               ~piece->facts.transaction, -piece->facts.changedMs);
    };
    std::stable_sort(states.begin(), states.end(),
                     [&rank](const Piece *a, const Piece *b) { return rank(a) < rank(b); });
    return states;
}

/// What the log has of a file belongs to the subvolume that has the file.
void resolveLog(QVector<Piece> *pieces, quint64 mainTree)
{
    for (Piece &piece : *pieces) {
        if (!piece.isFromLog)
            continue;
        const auto owner = std::find_if(pieces->cbegin(), pieces->cend(), [&](const Piece &other) {
            return !other.isFromLog && other.hasFacts && piece.hasFacts &&
                   other.facts.generation == piece.facts.generation;
        });
        piece.tree = owner != pieces->cend() ? owner->tree : mainTree;
    }
}

/// A file that is being deleted loses its names first, then its size and extents.
bool isEmptied(const FileVersion &version)
{
    return version.facts.links == 0 && version.facts.size == 0;
}

} // namespace

QVector<FileVersion> versionsOf(QVector<Piece> pieces, quint64 mainTree)
{
    resolveLog(&pieces, mainTree);
    const Assembler assembler(pieces);
    QVector<FileVersion> versions;
    Held held;
    FileVersion emptied; // the newest state of size 0, which is kept if there is no other
    quint64 generation = 0;
    int taken = 0;
    const auto closeFile = [&] {
        if (taken == 0 && emptied.inode != 0 && !emptied.names.isEmpty())
            versions.append(emptied);
        held = Held();
        emptied = FileVersion();
        taken = 0;
    };
    for (const Piece *piece : states(pieces)) {
        if (piece->facts.generation != generation)
            closeFile();
        generation = piece->facts.generation;
        if (taken >= kMaxVersions)
            continue;
        const FileVersion version = assembler.version(*piece);
        if (!version.isLive && version.facts.size == 0) {
            if (emptied.inode == 0 && !isEmptied(version))
                emptied = version;
            continue;
        }
        if (taken > 0 && !version.isLive && (held.holds(version) || !version.isComplete))
            continue;
        held.add(version);
        versions.append(version);
        ++taken;
    }
    closeFile();
    return versions;
}

} // namespace services::recoveryd::btrfs
