#include "ui/common/models/partitionmodels.h"

#include <tuple>

namespace ui {
namespace common {
namespace models {

namespace {

auto fields(const PartitionEntry &entry)
{
    return std::tie(entry.title, entry.pathAndFs, entry.used, entry.total, entry.mountPoint,
                    entry.usage, entry.selected, entry.dashed);
}

PartitionEntry partition(const char *title, const char *pathAndFs, const char *used,
                         const char *total, const char *mountPoint, int usage)
{
    return {QString::fromUtf8(title), QString::fromUtf8(pathAndFs),  QString::fromUtf8(used),
            QString::fromUtf8(total), QString::fromUtf8(mountPoint), usage};
}

PartitionEntry freeSpace(const char *size)
{
    PartitionEntry entry = partition("空闲空间", "未分配  RAW", size, "", "未挂载", 0);
    entry.dashed = true;
    return entry;
}

PartitionEntry preselected(PartitionEntry entry)
{
    entry.selected = true;
    return entry;
}

} // namespace

bool operator==(const PartitionEntry &a, const PartitionEntry &b)
{
    return fields(a) == fields(b);
}

bool operator==(const DiskGroup &a, const DiskGroup &b)
{
    return a.diskTitle == b.diskTitle && a.partitions == b.partitions && a.diskSize == b.diskSize;
}

QVector<DiskGroup> buildPartitionGroups()
{
    return {
        {QStringLiteral("Samsung SSD 970 EVO Plus"),
         {partition("EFI System", "/dev/nvme0n1p1  FAT32", "42 MB", "512 MB", "/boot/efi", 8),
          preselected(
              partition("Linux 文件系统", "/dev/nvme0n1p2  EXT4", "450 GB", "950 GB", "/", 47)),
          partition("Linux Swap", "/dev/nvme0n1p3  SWAP", "0 B", "16 GB", "none", 0)}},
        {QStringLiteral("WD Blue 2TB HDD"),
         {partition("用户数据", "/dev/sda1  XFS", "1.8 TB", "2.0 TB", "/home", 90),
          freeSpace("50 GB")}},
        {QStringLiteral("Seagate Backup Plus 1TB"),
         {partition("备份数据", "/dev/sdb1  NTFS", "620 GB", "900 GB", "/mnt/backup", 69),
          partition("备份归档", "/dev/sdb2  EXT4", "12 GB", "100 GB", "/mnt/archive", 12)}},
        {QStringLiteral("Kingston NV2 1TB SSD"),
         {partition("EFI System", "/dev/nvme1n1p1  FAT32", "64 MB", "512 MB", "未挂载", 13),
          partition("开发环境", "/dev/nvme1n1p2  BTRFS", "380 GB", "999 GB", "/mnt/work", 38)}},
        {QStringLiteral("TOSHIBA DT01ACA200 HDD"),
         {partition("影音资料", "/dev/sdc1  EXT4", "1.6 TB", "1.9 TB", "/mnt/media", 84),
          freeSpace("100 GB")}},
        {QStringLiteral("SanDisk Ultra 512GB SSD"),
         {partition("相片", "/dev/sdd1  EXFAT", "96 GB", "256 GB", "/media/photos", 38),
          partition("移动办公", "/dev/sdd2  EXT4", "210 GB", "256 GB", "/media/office", 82)}},
        {QStringLiteral("WDC Green 1TB HDD"),
         {partition("旧系统", "/dev/sde1  EXT3", "18 GB", "60 GB", "未挂载", 30),
          partition("旧数据", "/dev/sde2  EXT4", "540 GB", "871 GB", "未挂载", 62)}},
    };
}

} // namespace models
} // namespace common
} // namespace ui
