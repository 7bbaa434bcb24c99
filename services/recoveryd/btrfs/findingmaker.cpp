#include "recoveryd/btrfs/findingmaker.h"

namespace services::recoveryd::btrfs {

namespace {

constexpr int kAskEvery = 256; // files
constexpr int kMaxNames = 64;

Codec codecOf(quint8 compression)
{
    return compression == 1 ? Codec::Zlib : compression == 2 ? Codec::Lzo : Codec::Zstd;
}

} // namespace

bool FindingMaker::report(bool listsExisting, ScanObserver &observer)
{
    const quint64 mainTree = m_remains.largestTree();
    int count = 0;
    return m_remains.pieces().forEachInode([&](QVector<Piece> &pieces) {
        if (++count % kAskEvery == 0 && !observer.mayGoOn())
            return false;
        for (const FileVersion &version : versionsOf(std::move(pieces), mainTree)) {
            const bool exists = version.isLive && version.facts.links > 0;
            if ((exists && !listsExisting) || version.facts.size > (quint64(1) << 60))
                continue;
            if (!reportVersion(version, observer))
                return false;
        }
        return true;
    });
}

bool FindingMaker::reportVersion(const FileVersion &version, ScanObserver &observer)
{
    Finding finding;
    finding.content.size = qint64(version.facts.size);
    finding.modifiedMs = version.facts.modifiedMs;
    finding.isDeleted = !version.isLive || version.facts.links == 0;
    finding.isMapComplete = addExtents(version, &finding.content) && version.isComplete;
    finding.recency = version.lastSeen;
    finding.contentCheck = m_check.check(version);
    for (const ExtentItem &extent : version.extents)
        if (!extent.isReadable)
            finding.contentCheck = Finding::Check::Unusable;
    const FolderBook &folders = m_remains.folders();
    if (version.names.isEmpty())
        return observer.found(std::move(finding));
    for (int i = 0; i < qMin(kMaxNames, version.names.size()); ++i) {
        const Reference &reference = version.names.at(i);
        Finding named = finding;
        const FolderPath path = folders.pathOf(version.tree, reference.folder, version.lastSeen);
        named.name = reference.name;
        named.folder = path.folder;
        named.folderKnowledge = path.knowledge;
        if (version.facts.links == 0)
            named.deletedMs = version.facts.changedMs;
        else if (named.isDeleted)
            named.deletedMs =
                folders.deletionTime(version.tree, reference.folder, version.lastSeen);
        if (!observer.found(std::move(named)))
            return false;
    }
    return true;
}

bool FindingMaker::addExtents(const FileVersion &version, FileContent *content) const
{
    bool isComplete = true;
    quint64 end = 0;
    const quint64 size = version.facts.size;
    for (const ExtentItem &extent : version.extents) {
        if (extent.offset >= size || extent.length == 0)
            continue;
        if (extent.offset < end) { // two claims to one place: no map to be trusted
            isComplete = false;
            continue;
        }
        const qint64 length = qint64(qMin(extent.length, size - extent.offset));
        end = extent.offset + extent.length;
        if (!extent.isReadable)
            continue;
        if (extent.kind == ExtentItem::Kind::Inline)
            isComplete = addInline(extent, content) && isComplete;
        else if (extent.kind == ExtentItem::Kind::Regular && extent.address != 0)
            isComplete = (extent.compression != 0 ? addPacked(extent, length, content)
                                                  : addPlain(extent, length, content)) &&
                         isComplete;
    }
    return isComplete;
}

bool FindingMaker::addInline(const ExtentItem &extent, FileContent *content) const
{
    const QByteArray bytes = m_media.read(extent.inlineAt, extent.inlineLength);
    if (extent.offset != 0 || bytes.isEmpty())
        return false;
    if (extent.compression == 0) {
        content->inlineBytes = bytes.left(int(qMin(content->size, qint64(bytes.size()))));
        return true;
    }
    PackedExtent packed;
    packed.length = qMin(content->size, qint64(extent.length));
    packed.unpacked = qint64(extent.length);
    packed.codec = codecOf(extent.compression);
    packed.inlineBytes = bytes;
    content->packed.append(packed);
    return true;
}

bool FindingMaker::addPacked(const ExtentItem &extent, qint64 length, FileContent *content) const
{
    constexpr quint64 kMaxPacked = 16 * 1024 * 1024;
    if (extent.storedLength > kMaxPacked || extent.unpacked > kMaxPacked ||
        extent.skip > extent.unpacked || quint64(length) > extent.unpacked - extent.skip)
        return false;
    PackedExtent packed;
    packed.logical = qint64(extent.offset);
    packed.length = length;
    packed.skip = qint64(extent.skip);
    packed.unpacked = qint64(extent.unpacked);
    packed.codec = codecOf(extent.compression);
    for (const ChunkMap::Part &part :
         m_remains.chunks().map(extent.address, qint64(extent.storedLength))) {
        if (part.physical < 0)
            return false;
        packed.stored.append({part.physical, part.length});
    }
    content->packed.append(packed);
    return true;
}

bool FindingMaker::addPlain(const ExtentItem &extent, qint64 length, FileContent *content) const
{
    bool isComplete = true;
    qint64 logical = qint64(extent.offset);
    for (const ChunkMap::Part &part :
         m_remains.chunks().map(extent.address + extent.skip, length)) {
        if (part.physical < 0)
            isComplete = false;
        else
            content->append(logical, part.physical, part.length);
        logical += part.length;
    }
    return isComplete;
}

} // namespace services::recoveryd::btrfs
