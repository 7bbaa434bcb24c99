#include "recoveryd/ntfs/ntfssupport.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/ntfs/ntfsscanner.h"

#include <cstring>

namespace services::recoveryd {

namespace {

bool handles(const FileSystem &fileSystem)
{
    return fileSystem.type == QLatin1String("ntfs");
}

std::unique_ptr<Scanner> makeScanner(const ScanContext &context)
{
    return std::make_unique<ntfs::NtfsScanner>(context);
}

bool freeRanges(const MediaReader &media, Ranges *ranges, QString *error)
{
    ntfs::NtfsVolume volume(media);
    if (!volume.open()) {
        *error = QStringLiteral("NTFS 主文件表已损坏");
        return false;
    }
    return ntfs::ntfsFreeRanges(volume, ranges, error);
}

QString labelOf(const MediaReader &media)
{
    ntfs::NtfsVolume volume(media);
    ntfs::Record record;
    if (!volume.open() || !volume.readRecord(ntfs::kVolumeRecord, &record))
        return QString();
    const ntfs::Attribute *name = record.find(ntfs::kVolumeName);
    if (!name || !name->isResident)
        return QString();
    return QString::fromUtf8(
        ntfs::nameFromUtf16(record.bytes.constData() + name->valueAt, name->valueLength / 2));
}

void fill(const MediaReader &media, qint64 start, qint64 size, bool isFromBackup,
          FoundVolume *found)
{
    found->type = QStringLiteral("ntfs");
    found->start = start;
    found->size = size;
    found->isFromBackup = isFromBackup;
    const Volume &whole = media.volume();
    const MediaReader part(
        Volume(whole.image(), whole.start() + start, qMin(size, whole.size() - start)));
    found->label = labelOf(part);
}

/// A boot sector stands at the start of its volume, its backup in the sector behind the end. Which
/// one this is shows by where the file table is.
bool recogniseBoot(const MediaReader &media, qint64 offset, const QByteArray &bytes,
                   FoundVolume *found)
{
    ntfs::Geometry geometry;
    if (!ntfs::parseBootSector(bytes, &geometry))
        return false;
    for (qint64 start : {offset, offset - geometry.size}) {
        if (start < 0 || !ntfs::hasTable(media, start, geometry))
            continue;
        fill(media, start, geometry.size + geometry.sectorSize, start != offset, found);
        return true;
    }
    return false;
}

/// The first record of a file table, where no boot sector is left.
bool recogniseTable(const MediaReader &media, qint64 offset, const QByteArray &bytes,
                    FoundVolume *found)
{
    // A disk has millions of FILE records, of which few are the first of a table. Before NTFS 3.1
    // they did not say which they are.
    const Fields fields(bytes);
    const bool mayBeFirst = fields.le16(4) < 0x30 || fields.le32(0x2C) == ntfs::kMftRecord;
    ntfs::Geometry geometry;
    qint64 start = 0;
    if (!mayBeFirst || !ntfs::deriveGeometry(media, offset, &geometry, &start))
        return false;
    fill(media, start, geometry.size + geometry.sectorSize, true, found);
    return true;
}

bool recognise(const MediaReader &media, qint64 offset, const QByteArray &bytes, FoundVolume *found)
{
    if (bytes.size() < 512)
        return false;
    if (std::memcmp(bytes.constData(), "FILE", 4) == 0)
        return recogniseTable(media, offset, bytes, found);
    return std::memcmp(bytes.constData() + 3, "NTFS", 4) == 0 &&
           recogniseBoot(media, offset, bytes, found);
}

} // namespace

FileSystemSupport ntfsSupport()
{
    return {handles, makeScanner, freeRanges, recognise};
}

} // namespace services::recoveryd
