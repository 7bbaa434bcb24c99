#include "recoveryd/scan/scanplan.h"

#include "core/jsonnumber.h"
#include "recoveryd/devices/partitiontable.h"
#include "recoveryd/scan/carvingscanner.h"
#include "recoveryd/scan/volumesearch.h"

#include <QDebug>

#include <algorithm>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kSector = 512;
// Where a volume that was formatted again keeps a mark of its former file system.
constexpr qint64 kFormerHead = 2 * 1024 * 1024;
constexpr int kMaxPartitions = 256;

FileSystem ofType(const QString &type)
{
    FileSystem fileSystem;
    fileSystem.type = type;
    return fileSystem;
}

FoundVolume asFound(const Range &range, const FileSystem &fileSystem)
{
    FoundVolume found;
    found.type = fileSystem.type;
    found.label = fileSystem.label;
    found.start = range.start;
    found.size = range.length;
    return found;
}

} // namespace

QJsonObject PlannedVolume::toJson() const
{
    return {{QStringLiteral("start"), start},
            {QStringLiteral("size"), size},
            {QStringLiteral("type"), type},
            {QStringLiteral("listsExisting"), listsExisting}};
}

PlannedVolume PlannedVolume::fromJson(const QJsonObject &object)
{
    PlannedVolume volume;
    volume.start = core::toInt64(object.value(QLatin1String("start")));
    volume.size = core::toInt64(object.value(QLatin1String("size")));
    volume.type = object.value(QLatin1String("type")).toString();
    volume.listsExisting = object.value(QLatin1String("listsExisting")).toBool();
    return volume;
}

ScanPlan::ScanPlan(const Device &device, const ScanRequest &request)
    : m_device(device)
    , m_request(request)
    , m_media(std::make_shared<MediaReader>(device.volume))
{
    findLive();
}

std::shared_ptr<const MediaReader> ScanPlan::mediaOf(const Range &volume) const
{
    // Not the device but its disk bounds a volume: a gap may hold only a part of it.
    const Volume &device = m_device.volume;
    return std::make_shared<MediaReader>(
        Volume(device.image(), device.start() + volume.start, volume.length));
}

void ScanPlan::findLive()
{
    const Volume &volume = m_device.volume;
    if (m_device.fileSystem.isKnown()) {
        m_live.append({{0, volume.size()}, m_device.fileSystem, Ranges(), false});
    } else if (volume.start() == 0 && volume.size() == volume.image()->size()) {
        QVector<Partition> partitions;
        m_isDisk = readPartitionTable(volume, &partitions, nullptr) && !partitions.isEmpty();
        for (const Partition &partition : qAsConst(partitions)) {
            const Volume part(volume.image(), partition.start, partition.size);
            const FileSystem fileSystem = probeFileSystem(part);
            if (m_isDisk && fileSystem.isKnown() && m_live.size() < kMaxPartitions)
                m_live.append({{partition.start, part.size()}, fileSystem, Ranges(), false});
        }
    }
    for (Live &live : m_live)
        live.isFreeKnown = readInUse(&live);
}

bool ScanPlan::readInUse(Live *live) const
{
    live->inUse = {live->range};
    const FileSystemSupport *const family = supportOf(live->fileSystem);
    Ranges free;
    QString error;
    if (!family || !family->freeRanges)
        return false;
    if (!family->freeRanges(*mediaOf(live->range), &free, &error)) {
        qWarning() << "[ScanPlan]" << m_device.path << error;
        return false;
    }
    for (Range &range : free)
        range.start += live->range.start;
    live->inUse = subtracted(live->inUse, joinedRanges(free));
    return true;
}

bool ScanPlan::needsSearch() const
{
    return m_live.isEmpty() || m_isDisk || !supportOf(m_live.first().fileSystem);
}

qint64 ScanPlan::searchWork() const
{
    return needsSearch() ? m_media->size() : kFormerHead;
}

bool ScanPlan::search(ScanObserver &observer)
{
    m_volumes.clear();
    for (const Live &live : qAsConst(m_live)) {
        const FileSystemSupport *const family = supportOf(live.fileSystem);
        // Whose free space cannot be read is damaged beyond its superblock.
        const bool isHealthy = family && (live.isFreeKnown || !family->freeRanges);
        if (family)
            m_volumes.append(
                {live.range.start, live.range.length, live.fileSystem.type, !isHealthy});
    }
    if (!needsSearch())
        return searchFormerFormats(observer);
    Ranges skipped;
    for (const Live &live : qAsConst(m_live))
        if (m_isDisk && (!m_request.isDeep() || live.fileSystem.isEncrypted()))
            skipped.append(live.range);
    VolumeSearch volumes(*m_media, joinedRanges(skipped));
    const bool isDone = (!m_isDisk && volumes.searchEnds(observer)) || volumes.searchAll(observer);
    addFound(volumes.found());
    return isDone;
}

/// A volume that works may have had another file system before.
bool ScanPlan::searchFormerFormats(ScanObserver &observer)
{
    VolumeSearch volumes(*m_media);
    volumes.searchEnds(observer, kFormerHead);
    QVector<FoundVolume> former;
    for (const FoundVolume &found : volumes.found())
        if (found.type != m_live.first().fileSystem.type && found.start == 0 &&
            found.size > m_media->size() / 2)
            former.append(found);
    addFound(former);
    return observer.mayGoOn();
}

void ScanPlan::addFound(const QVector<FoundVolume> &found)
{
    QVector<FoundVolume> all = found;
    for (const Live &live : qAsConst(m_live))
        all.append(asFound(live.range, live.fileSystem));
    const QVector<FoundVolume> merged = VolumeSearch::mergedVolumes(all);
    for (const FoundVolume &volume : merged) {
        const bool isLive = std::any_of(m_live.begin(), m_live.end(), [&volume](const Live &live) {
            return live.range.start == volume.start && live.fileSystem.type == volume.type;
        });
        if (!isLive && m_device.volume.start() + volume.start >= 0)
            m_volumes.append({volume.start, volume.size, volume.type, true});
    }
}

const ScanPlan::Live *ScanPlan::liveAt(const PlannedVolume &planned) const
{
    for (const Live &live : m_live)
        if (live.range.start == planned.start && live.fileSystem.type == planned.type)
            return &live;
    return nullptr;
}

ScanPhase ScanPlan::phaseOf(const PlannedVolume &planned) const
{
    ScanPhase phase;
    const FileSystemSupport *const family = supportOf(ofType(planned.type));
    if (!family)
        return phase;
    phase.media = mediaOf({planned.start, planned.size});
    phase.place.shift = planned.start;
    const Live *const own = liveAt(planned);
    if (own && own->isFreeKnown && !planned.listsExisting) {
        phase.place.ownInUse = own->inUse;
    } else if (!own && family->freeRanges) {
        Ranges free;
        if (family->freeRanges(*phase.media, &free, nullptr)) {
            for (Range &range : free)
                range.start += planned.start;
            phase.place.ownInUse =
                subtracted({{planned.start, phase.media->size()}}, joinedRanges(free));
        }
    }
    for (const Live &live : m_live)
        if (&live != own && live.isFreeKnown)
            phase.place.foreignInUse += live.inUse;
    phase.place.foreignInUse = joinedRanges(phase.place.foreignInUse);
    const FileSystem fileSystem = probeFileSystem(phase.media->volume());
    phase.scanner =
        family->makeScanner({phase.media, fileSystem, m_request, planned.listsExisting});
    return phase;
}

std::vector<ScanPhase> ScanPlan::metadataPhases() const
{
    std::vector<ScanPhase> phases;
    for (const PlannedVolume &planned : m_volumes) {
        if (!m_request.withMetadata)
            break;
        ScanPhase phase = phaseOf(planned);
        if (phase.scanner)
            phases.push_back(std::move(phase));
    }
    return phases;
}

qint64 ScanPlan::carvingEstimate() const
{
    return m_request.isDeep() ? totalLength(carvingRanges(Ranges())) : 0;
}

Ranges ScanPlan::carvingRanges(const Ranges &found) const
{
    Ranges skipped = found;
    for (const Live &live : m_live)
        if (live.fileSystem.isEncrypted() || (!m_request.isFullDisk && live.isFreeKnown))
            skipped += live.inUse;
    return subtracted({{0, m_device.volume.size()}}, joinedRanges(skipped));
}

std::unique_ptr<Scanner> ScanPlan::makeCarver(const Ranges &ranges, const QString &note) const
{
    const bool isFreeKnown = std::any_of(m_live.begin(), m_live.end(),
                                         [](const Live &live) { return live.isFreeKnown; });
    CarvingScanner::Plan plan;
    plan.volume = m_device.volume;
    plan.media = m_media;
    plan.ranges = ranges;
    plan.alignment = kSector;
    plan.request = m_request;
    plan.phaseText = !note.isEmpty()        ? note
                     : m_request.isFullDisk ? QStringLiteral("深度扫描整个分区")
                     : isFreeKnown          ? QStringLiteral("深度扫描未分配空间")
                                   : QStringLiteral("深度扫描整个分区（空闲空间未知）");
    return std::make_unique<CarvingScanner>(plan);
}

} // namespace recoveryd
} // namespace services
