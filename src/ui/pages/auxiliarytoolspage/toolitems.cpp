#include "ui/pages/auxiliarytoolspage/toolitems.h"

QList<ToolItem> auxiliaryTools()
{
    const QString hardDisk = QStringLiteral("机械硬盘");
    const QString solidState = QStringLiteral("固态硬盘");
    const QString fileSystem = QStringLiteral("文件系统");
    return {
        {hardDisk, QStringLiteral("smartctl"),
         QStringLiteral("读取机械硬盘 SMART 信息，查看坏扇区、重映射计数和健康状态。"),
         QStringLiteral("smartctl -a /dev/sda"), QStringLiteral("smart, 坏道, 健康度")},
        {hardDisk, QStringLiteral("badblocks"),
         QStringLiteral("对机械硬盘做坏块扫描，可用于发现潜在物理坏道。"),
         QStringLiteral("badblocks -sv /dev/sda"), QStringLiteral("坏块, 扇区, 只读扫描")},
        {hardDisk, QStringLiteral("hdparm"),
         QStringLiteral("检测硬盘读写性能并查看接口参数，用于初步判定磁盘异常。"),
         QStringLiteral("hdparm -tT /dev/sda"), QStringLiteral("性能, 传输速率, HDD")},
        {solidState, QStringLiteral("nvme-cli"),
         QStringLiteral("检查 NVMe SSD 健康状态、温度与寿命信息。"),
         QStringLiteral("nvme smart-log /dev/nvme0"), QStringLiteral("NVMe, SSD, SMART")},
        {solidState, QStringLiteral("smartctl (SSD)"),
         QStringLiteral("针对 SATA SSD 读取 SMART 指标，查看磨损与错误统计。"),
         QStringLiteral("smartctl -a /dev/sdb"), QStringLiteral("SATA SSD, 健康度, 寿命")},
        {solidState, QStringLiteral("f3"),
         QStringLiteral("检测闪存盘/U 盘真实可用容量，识别缩水盘问题。"),
         QStringLiteral("f3probe --destructive /dev/sdc"), QStringLiteral("闪存, 容量验证, U盘"),
         true},
        {fileSystem, QStringLiteral("fsck.ext4"),
         QStringLiteral("检查并修复 EXT4 文件系统结构错误。"),
         QStringLiteral("fsck.ext4 -f /dev/sda1"), QStringLiteral("EXT4, 修复, 文件系统"), true},
        {fileSystem, QStringLiteral("xfs_repair"), QStringLiteral("修复 XFS 文件系统元数据问题。"),
         QStringLiteral("xfs_repair /dev/sdb1"), QStringLiteral("XFS, 元数据, 修复"), true},
        {fileSystem, QStringLiteral("btrfs scrub"),
         QStringLiteral("校验 Btrfs 数据块并尝试修复可纠正错误。"),
         QStringLiteral("btrfs scrub start /mnt/data"), QStringLiteral("Btrfs, 校验, 数据完整性")},
    };
}
