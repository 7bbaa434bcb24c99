#include "recoveryd/fat/fatsupport.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/fat/fatscanner.h"

namespace services::recoveryd {

namespace {

bool handles(const FileSystem &fileSystem)
{
    return fileSystem.type.startsWith(QLatin1String("fat")) ||
           fileSystem.type == QLatin1String("vfat");
}

std::unique_ptr<Scanner> makeScanner(const ScanContext &context)
{
    return std::make_unique<fat::FatScanner>(context);
}

bool freeRanges(const MediaReader &media, Ranges *ranges, QString *error)
{
    fat::FatLayout layout;
    if (!fat::findFatLayout(media, &layout)) {
        *error = QStringLiteral("FAT 文件分配表已损坏");
        return false;
    }
    *ranges = fat::AllocationTable(media, layout.table, layout.grid).used().complement(layout.grid);
    return true;
}

void fill(const fat::FatLayout &layout, qint64 start, bool isFromBackup, FoundVolume *found)
{
    found->type = QStringLiteral("fat%1").arg(layout.table.bits);
    found->start = start;
    found->size = layout.size;
    found->isFromBackup = isFromBackup;
}

bool recogniseBoot(const MediaReader &media, qint64 offset, const QByteArray &bytes,
                   FoundVolume *found)
{
    FatGeometry geometry;
    if (!parseFatGeometry(bytes.left(512), &geometry))
        return false;
    for (qint64 start : {offset, offset - fat::kBackupSector * geometry.sectorSize}) {
        if (start < 0 || !fat::hasTable(media, start, geometry))
            continue;
        fill(fat::layoutOf(geometry), start, start != offset, found);
        found->label = QString::fromLatin1(bytes.mid(geometry.bits == 32 ? 71 : 43, 11)).trimmed();
        if (found->label == QLatin1String("NO NAME"))
            found->label.clear();
        return true;
    }
    return false;
}

/// The first table of a volume without boot sectors.
bool recogniseTable(const MediaReader &media, qint64 offset, FoundVolume *found)
{
    fat::FatLayout layout;
    if (!fat::deriveLayout(media, offset, &layout))
        return false;
    const qint64 reserved = layout.table.bits == 32 ? fat::kUsualReserved * 512 : qint64(512);
    fill(layout, qMax(qint64(0), offset - reserved), true, found);
    found->size = layout.size - found->start;
    return true;
}

bool recognise(const MediaReader &media, qint64 offset, const QByteArray &bytes, FoundVolume *found)
{
    int bits = 0;
    if (bytes.size() < 512)
        return false;
    // Every entry of a table may look like its start, but for the one that names the medium.
    if (quint8(bytes.at(0)) >= 0xF0 && fat::isTableStart(bytes.left(8), &bits))
        return recogniseTable(media, offset, found);
    return Fields(QByteArray::fromRawData(bytes.constData(), 512)).le16(510) == 0xAA55 &&
           recogniseBoot(media, offset, bytes, found);
}

} // namespace

FileSystemSupport fatSupport()
{
    return {handles, makeScanner, freeRanges, recognise};
}

} // namespace services::recoveryd
