#include "recoveryd/scan/resultlist.h"

#include "recoveryd/scan/contentcheck.h"
#include "recoveryd/scan/decodingcheck.h"
#include "recoveryd/scan/filetypes.h"

#include <QElapsedTimer>

#include <algorithm>

namespace services::recoveryd {

namespace {

class Mixer
{
public:
    void add(quint64 value)
    {
        m_hash ^= value + 0x9E3779B97F4A7C15u + (m_hash << 6) + (m_hash >> 2);
        m_hash *= 0xFF51AFD7ED558CCDu;
        m_hash ^= m_hash >> 33;
    }
    void add(const QByteArray &bytes) { add(quint64(qHash(bytes)) << 32 | quint64(bytes.size())); }
    quint64 hash() const { return m_hash; }

private:
    quint64 m_hash = 0x243F6A8885A308D3u;
};

bool hasPlace(const FileContent &content)
{
    return !content.extents.isEmpty() ||
           std::any_of(content.packed.begin(), content.packed.end(),
                       [](const PackedExtent &extent) { return !extent.stored.isEmpty(); });
}

bool hasSamePath(const Finding &a, const Finding &b)
{
    return a.name == b.name && a.folder == b.folder && a.folderKnowledge == b.folderKnowledge;
}

int knowledgeOf(const Finding &finding)
{
    return finding.name.isEmpty() ? 0 : 1 + int(finding.folderKnowledge);
}

bool isInside(const Extent &extent, qint64 size)
{
    return extent.physical >= 0 && extent.length > 0 && extent.physical <= size &&
           extent.length <= size - extent.physical;
}

/// Whether the blocks that the file system names are those of the carved file, which are the next
/// ones as a rule.
bool hasSamePlaces(const FileContent &known, const FileContent &carved)
{
    for (const Extent &extent : known.extents) {
        const qint64 end = qMin(extent.logicalEnd(), carved.size);
        for (const Extent &other : carved.extents) {
            const bool isSeparate = other.logical >= end || other.logicalEnd() <= extent.logical;
            if (!isSeparate && other.physical - other.logical != extent.physical - extent.logical)
                return false;
        }
    }
    return true;
}

/// A carved file is right for sure where it was decoded. Else what the file system says counts: the
/// size, or the places.
bool isCompletedBy(const Finding &known, const Finding &carved)
{
    if (!hasEnd(carved.evidence) || (known.isSizeExact && known.isMapComplete))
        return false;
    const bool isSameSize = known.isSizeExact && known.content.size == carved.content.size;
    return carved.contentCheck == Finding::Check::Passed || isSameSize ||
           (!known.isSizeExact && hasSamePlaces(known.content, carved.content));
}

} // namespace

quint64 contentKey(const Finding &finding)
{
    const FileContent &content = finding.content;
    Mixer mixer;
    mixer.add(quint64(content.size));
    for (const Extent &extent : content.extents) {
        mixer.add(quint64(extent.logical));
        mixer.add(quint64(extent.physical));
        mixer.add(quint64(extent.length));
    }
    for (const PackedExtent &extent : content.packed) {
        mixer.add(quint64(extent.logical));
        mixer.add(quint64(extent.skip));
        mixer.add(extent.inlineBytes);
        for (const Range &range : extent.stored)
            mixer.add(quint64(range.start));
    }
    mixer.add(content.inlineBytes);
    if (!hasPlace(content)) {
        mixer.add(finding.name);
        mixer.add(finding.folder);
    }
    return mixer.hash();
}

ResultList::ResultList(ResultLog &log, const ScanRequest &request, qint64 deviceSize)
    : m_log(log)
    , m_request(request)
    , m_deviceSize(deviceSize)
{}

void ResultList::reload()
{
    ResultRow row;
    for (int number = 1; number <= m_log.lastNumber(); ++number) {
        if (!m_log.read(number, &row))
            continue;
        m_byContent.insert(contentKey(row.finding), number);
        m_claims.add(number, row.finding.content, row.finding.recency, !row.finding.isDeleted);
        setWhole(number, isWhole(row.finding, row.damage));
        planCheck(number, row.finding);
    }
    m_isReloaded = true;
}

void ResultList::beginScanner(const Place &place)
{
    m_place = place;
    if (!m_isReloaded) {
        m_firstOfScanner = m_log.lastNumber() + 1;
        m_claims.begin();
    }
    m_isReloaded = false;
}

/// Moves the finding to the scanned device, and takes out what cannot be on it.
void ResultList::place(Finding *finding) const
{
    FileContent &content = finding->content;
    content.shift(m_place.shift);
    content.size = qMax(qint64(0), content.size);
    const int before = content.extents.size();
    content.extents.erase(
        std::remove_if(content.extents.begin(), content.extents.end(),
                       [this](const Extent &extent) { return !isInside(extent, m_deviceSize); }),
        content.extents.end());
    if (content.extents.size() < before)
        finding->isMapComplete = false;
}

Damage ResultList::damageOf(const Finding &finding) const
{
    Damage damage;
    if (m_place.ownInUse.isEmpty() && m_place.foreignInUse.isEmpty())
        return damage;
    const Ranges ranges = finding.content.storedRanges();
    if (finding.isDeleted)
        damage.inUse = overlapOf(ranges, m_place.ownInUse);
    damage.inUse += overlapOf(ranges, m_place.foreignInUse);
    return damage;
}

bool ResultList::add(Finding &&finding)
{
    place(&finding);
    const QString type = !finding.type.isEmpty()  ? finding.type
                         : finding.name.isEmpty() ? finding.extension
                                                  : suffixOf(finding.name);
    if (!m_request.wants(type))
        return true;
    const quint64 key = contentKey(finding);
    if (mergeByContent(key, finding) == Merge::Taken || mergeByStart(finding) == Merge::Taken)
        return true;
    if (m_log.count() >= kMaxFiles)
        return false;
    const Damage damage = damageOf(finding);
    const int number = m_log.append(finding, damage);
    m_byContent.insert(key, number);
    setWhole(number, isWhole(finding, damage));
    planCheck(number, finding);
    if (finding.source != FindingSource::Carving)
        m_claims.add(number, finding.content, finding.recency, !finding.isDeleted);
    announce(number, finding, damage);
    return true;
}

/// The same bytes were found before: the better name stays. Two full names of one scanner are two
/// rows only if they were valid at the same time, as hard links are.
ResultList::Merge ResultList::mergeByContent(quint64 key, const Finding &finding)
{
    Merge merge = Merge::New;
    m_byContent.find(key, [&](int number) {
        ResultRow row;
        if (!m_log.read(number, &row) || contentKey(row.finding) != key)
            return false;
        Finding &known = row.finding;
        const bool areLinks = !hasSamePath(known, finding) && knowledgeOf(known) > 0 &&
                              knowledgeOf(finding) > 0 && known.recency == finding.recency &&
                              number >= m_firstOfScanner;
        if (areLinks)
            return false;
        merge = Merge::Taken;
        const bool isBetter = knowledgeOf(finding) > knowledgeOf(known) ||
                              (knowledgeOf(finding) == knowledgeOf(known) &&
                               number >= m_firstOfScanner && finding.recency > known.recency);
        if (isBetter) {
            known = finding;
            row.damage = damageOf(finding);
            m_log.replace(number, known, row.damage);
        } else if (isWhole(finding, Damage()) && finding.source == FindingSource::Carving &&
                   known.contentCheck == Finding::Check::None) {
            // The contents say so as well.
            known.contentCheck = Finding::Check::Passed;
            m_log.replace(number, known, row.damage);
        }
        setWhole(number, isWhole(known, row.damage));
        return true;
    });
    return merge;
}

/// A carved file begins where a named one does whose end or map is not known: together they make
/// one whole file.
ResultList::Merge ResultList::mergeByStart(const Finding &finding)
{
    if (finding.source != FindingSource::Carving || finding.content.extents.isEmpty())
        return Merge::New;
    const qint64 start = finding.content.extents.first().physical;
    auto it = std::lower_bound(m_starts.begin(), m_starts.end(), std::make_pair(start, 0));
    for (; it != m_starts.end() && it->first == start; ++it) {
        ResultRow row;
        if (!m_log.read(it->second, &row) || row.finding.source == FindingSource::Hybrid)
            continue;
        if (isCompletedBy(row.finding, finding)) {
            Finding whole = row.finding;
            whole.source = FindingSource::Hybrid;
            whole.content = finding.content;
            whole.evidence = finding.evidence;
            whole.isSizeExact = true;
            whole.isMapComplete = true;
            whole.contentCheck = finding.contentCheck;
            if (whole.extension.isEmpty())
                whole.extension = finding.extension;
            m_log.replace(it->second, whole, damageOf(whole));
            return Merge::Taken;
        }
        // Without an end of its own the carved one adds nothing.
        if (!hasEnd(finding.evidence) && (!row.finding.isSizeExact || !row.finding.isMapComplete))
            return Merge::Taken;
    }
    return Merge::New;
}

void ResultList::endScanner()
{
    const std::vector<ClaimMap::Loss> losses = m_claims.settle();
    for (const ClaimMap::Loss &loss : losses) {
        ResultRow row;
        if (!m_log.read(loss.number, &row))
            continue;
        row.damage.overwritten = loss.bytes;
        m_log.setDamage(loss.number, row.damage);
        setWhole(loss.number, isWhole(row.finding, row.damage));
    }
}

/// Notes a file whose blocks may hold something else by now.
void ResultList::planCheck(int number, const Finding &finding)
{
    const bool isFromMap =
        finding.source == FindingSource::Metadata || finding.source == FindingSource::Journal;
    if (finding.isDeleted && isFromMap && finding.contentCheck == Finding::Check::None &&
        m_isWhole[size_t(number - 1)] && !finding.content.extents.isEmpty() &&
        isCheckable(suffixOf(finding.name)))
        m_unchecked.emplace_back(finding.content.extents.first().physical, number);
}

void ResultList::checkContents(const MediaReader &device, const CheckBudget &budget,
                               const std::function<bool()> &mayGoOn)
{
    std::vector<std::pair<qint64, int>> planned;
    planned.swap(m_unchecked);
    std::sort(planned.begin(), planned.end());
    QElapsedTimer clock;
    const auto inTime = [&](qint64 milliseconds) {
        return clock.elapsed() <= milliseconds && mayGoOn();
    };
    const auto each = [&](qint64 milliseconds, const CheckFunction &check) {
        clock.start();
        for (const auto &entry : planned) {
            if (!inTime(milliseconds))
                return;
            checkRow(entry.second, check);
        }
    };
    // First what is cheap, for all.
    each(budget.suffixMs, [&device](const Finding &finding) {
        const Finding::Check check = checkBySuffix(device, finding);
        return check == Finding::Check::Failed ? check : Finding::Check::None;
    });
    each(budget.decodingMs, [&](const Finding &finding) {
        return checkByDecoding(device, finding, [&] { return inTime(budget.decodingMs); });
    });
}

void ResultList::checkRow(int number, const CheckFunction &check)
{
    ResultRow row;
    if (!m_isWhole[size_t(number - 1)] || !m_log.read(number, &row))
        return;
    const Finding::Check result = check(row.finding);
    if (result == Finding::Check::None)
        return;
    row.finding.contentCheck = result;
    m_log.replace(number, row.finding, row.damage);
    setWhole(number, isWhole(row.finding, row.damage));
}

Ranges ResultList::closeClaims()
{
    const auto whole = [this](int number) {
        return m_isWhole[size_t(number - 1)];
    };
    const Ranges found = m_claims.ranges(whole);
    m_starts.clear();
    for (const auto &start : m_claims.starts())
        if (!whole(start.second))
            m_starts.push_back(start);
    m_claims.clear();
    m_place = Place();
    m_firstOfScanner = m_log.lastNumber() + 1;
    return found;
}

void ResultList::markUnreadable(const Ranges &bad)
{
    ResultRow row;
    for (int number = 1; !bad.isEmpty() && number <= m_log.lastNumber(); ++number) {
        if (!m_log.read(number, &row))
            continue;
        const qint64 unreadable = overlapOf(row.finding.content.storedRanges(), bad);
        if (unreadable == row.damage.unreadable)
            continue;
        row.damage.unreadable = unreadable;
        m_log.setDamage(number, row.damage);
    }
}

void ResultList::setWhole(int number, bool whole)
{
    if (m_isWhole.size() < size_t(number))
        m_isWhole.resize(size_t(number));
    m_isWhole[size_t(number - 1)] = whole;
}

void ResultList::announce(int number, const Finding &finding, const Damage &damage)
{
    m_new.append(describe(finding, number, damage));
}

QVector<FoundFile> ResultList::takeNew()
{
    QVector<FoundFile> taken;
    taken.swap(m_new);
    return taken;
}

} // namespace services::recoveryd
