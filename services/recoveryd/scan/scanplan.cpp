#include "recoveryd/scan/scanplan.h"

#include "recoveryd/ext/extfreespace.h"
#include "recoveryd/scan/carvingscanner.h"

#include <QDebug>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kSector = 512;

/// Where files can begin. The clusters of a FAT do not begin at a multiple of their size.
qint64 alignmentOf(const FileSystem &fileSystem, ScanRequest::Mode mode)
{
    const bool isAtBlocks = fileSystem.isKnown() &&
                            !fileSystem.type.startsWith(QLatin1String("fat")) &&
                            fileSystem.type != QLatin1String("exfat");
    return mode == ScanRequest::Mode::Quick && isAtBlocks ? qMax(kSector, fileSystem.blockSize)
                                                          : kSector;
}

bool freeSpaceOf(const Device &device, Ranges *ranges)
{
    ExtVolume ext;
    QString error;
    if (!device.fileSystem.isExt())
        return false;
    if (ext.open(device.volume, &error) && readFreeRanges(ext, ranges, &error))
        return true;
    qWarning() << "[ScanPlan]" << device.path << error;
    return false;
}

} // namespace

std::vector<std::unique_ptr<Scanner>> planScan(const Device &device, const ScanRequest &request)
{
    const QString depth = request.mode == ScanRequest::Mode::Deep ? QStringLiteral("深度扫描")
                                                                  : QStringLiteral("快速扫描");
    CarvingScanner::Plan plan;
    plan.volume = device.volume;
    plan.request = request;
    plan.alignment = alignmentOf(device.fileSystem, request.mode);
    if (!request.isFullDisk && freeSpaceOf(device, &plan.ranges)) {
        plan.phaseText = depth + QStringLiteral("未分配空间");
    } else {
        plan.ranges = {{0, device.volume.size()}};
        plan.phaseText = depth + (request.isFullDisk ? QStringLiteral("整个分区")
                                                     : QStringLiteral("整个分区（空闲空间未知）"));
    }

    std::vector<std::unique_ptr<Scanner>> scanners;
    scanners.push_back(std::make_unique<CarvingScanner>(plan));
    return scanners;
}

} // namespace recoveryd
} // namespace services
