#pragma once

#include "recoveryd/devices/devicecatalog.h"
#include "recoveryd/scan/filesystemsupport.h"
#include "recoveryd/scan/resultlist.h"

#include <memory>
#include <vector>

namespace services {
namespace recoveryd {

/// One file system that a scan looks into.
struct PlannedVolume
{
    qint64 start = 0; ///< Bytes from the start of the scanned device; may be negative, see search.
    qint64 size = 0;
    QString type; ///< As FileSystem::type.
    /// It is damaged, lost or from before a format, so its existing files are findings, too.
    bool listsExisting = false;

    QJsonObject toJson() const;
    static PlannedVolume fromJson(const QJsonObject &object);
};

/// A scanner and what has to be known about the place where it searches.
struct ScanPhase
{
    std::unique_ptr<Scanner> scanner;
    std::shared_ptr<const MediaReader> media; ///< What the scanner reads.
    ResultList::Place place;
};

/// Decides which scanners answer a request, in steps: find the volumes, scan their metadata, carve.
/// Reads superblocks and bitmaps, so a call may take a while. On the scan's thread.
class ScanPlan
{
public:
    ScanPlan(const Device &device, const ScanRequest &request);

    /// The scanned device from its first to its last byte.
    const std::shared_ptr<const MediaReader> &media() const { return m_media; }
    /// Whether search() has to read the device to know its volumes.
    bool needsSearch() const;
    /// Upper bound of the bytes that search() reads.
    qint64 searchWork() const;
    /// Finds the volumes. False if it was told to stop.
    [[nodiscard]] bool search(ScanObserver &observer);
    QVector<PlannedVolume> volumes() const { return m_volumes; }
    /// In place of search(), for a scan that is continued.
    void setVolumes(const QVector<PlannedVolume> &volumes) { m_volumes = volumes; }

    /// The scanners of metadata, one a volume; empty if the request wants none.
    std::vector<ScanPhase> metadataPhases() const;
    /// Bytes that carving will read at most; 0 if the request wants none.
    qint64 carvingEstimate() const;
    /// The parts of the device that carving reads, without those in `found`.
    Ranges carvingRanges(const Ranges &found) const;
    std::unique_ptr<Scanner> makeCarver(const Ranges &ranges,
                                        const QString &note = QString()) const;

private:
    /// A file system of the device that works: the device itself, or a partition of a whole disk.
    struct Live
    {
        Range range;
        FileSystem fileSystem;
        Ranges inUse; ///< Relative to the device; all of it if that is not known.
        bool isFreeKnown = false;
    };

    void findLive();
    [[nodiscard]] bool readInUse(Live *live) const;
    [[nodiscard]] bool searchFormerFormats(ScanObserver &observer);
    void addFound(const QVector<FoundVolume> &found);
    ScanPhase phaseOf(const PlannedVolume &planned) const;
    const Live *liveAt(const PlannedVolume &planned) const;
    std::shared_ptr<const MediaReader> mediaOf(const Range &volume) const;

    Device m_device;
    ScanRequest m_request;
    std::shared_ptr<const MediaReader> m_media;
    bool m_isDisk = false; ///< A disk with a partition table.
    QVector<Live> m_live;
    QVector<PlannedVolume> m_volumes;
};

} // namespace recoveryd
} // namespace services
