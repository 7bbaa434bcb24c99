#include "recoveryd/exfat/exfatsupport.h"

#include "recoveryd/exfat/exfatscanner.h"

namespace services::recoveryd {

namespace {

bool handles(const FileSystem &fileSystem)
{
    return fileSystem.type == QLatin1String("exfat");
}

std::unique_ptr<Scanner> makeScanner(const ScanContext &context)
{
    return std::make_unique<exfat::ExfatScanner>(context);
}

bool freeRanges(const MediaReader &media, Ranges *ranges, QString *error)
{
    exfat::ExfatLayout layout;
    fat::ClusterSet used;
    if (!exfat::findExfatLayout(media, &layout) ||
        !exfat::readBitmap(media, layout, fat::AllocationTable(media, layout.table, layout.grid),
                           &used)) {
        *error = QStringLiteral("exFAT 分配位图已损坏");
        return false;
    }
    *ranges = used.complement(layout.grid);
    return true;
}

/// A boot sector stands at the start of its volume, its backup 12 sectors later. Which one this is
/// shows by where the table is.
bool recognise(const MediaReader &media, qint64 offset, const QByteArray &bytes, FoundVolume *found)
{
    exfat::ExfatLayout layout;
    if (bytes.size() < 512 || bytes.at(3) != 'E' ||
        !exfat::parseExfatBoot(bytes.left(512), &layout))
        return false;
    for (qint64 start : {offset, offset - exfat::kBackupSector * layout.sectorSize}) {
        if (start < 0 || !exfat::hasTable(media, start, layout))
            continue;
        found->type = QStringLiteral("exfat");
        found->start = start;
        found->size = layout.size;
        found->isFromBackup = start != offset;
        return true;
    }
    return false;
}

} // namespace

FileSystemSupport exfatSupport()
{
    return {handles, makeScanner, freeRanges, recognise};
}

} // namespace services::recoveryd
