#include "recoveryd/devices/partitiontable.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/gpt.h"

#include <QSet>

#include <algorithm>

namespace services {
namespace recoveryd {

namespace {

constexpr qint64 kSector = 512;
constexpr int kFirstEntry = 446;
constexpr int kEntrySize = 16;
constexpr int kPrimaryEntries = 4;
constexpr int kMaxLogical = 128;
constexpr quint8 kProtectiveType = 0xEE;

struct MbrEntry
{
    quint8 flag = 0;
    quint8 type = 0;
    qint64 start = 0; ///< Bytes, relative to a place that depends on the entry's kind.
    qint64 size = 0;

    bool isUsed() const { return type != 0 && size > 0; }
    bool isExtended() const { return type == 0x05 || type == 0x0F || type == 0x85; }
};

MbrEntry entryOf(const Fields &sector, int index)
{
    const int at = kFirstEntry + index * kEntrySize;
    MbrEntry entry;
    entry.flag = sector.u8(at);
    entry.type = sector.u8(at + 4);
    entry.start = qint64(sector.le32(at + 8)) * kSector;
    entry.size = qint64(sector.le32(at + 12)) * kSector;
    return entry;
}

QString typeName(quint8 type)
{
    switch (type) {
    case 0x82:
        return QStringLiteral("Linux Swap");
    case 0x83:
        return QStringLiteral("Linux 文件系统");
    case 0x8E:
        return QStringLiteral("Linux LVM");
    case 0xEF:
        return QStringLiteral("EFI System");
    default:
        return QString();
    }
}

bool append(const Volume &disk, Partition partition, QVector<Partition> *to, QString *error)
{
    if (partition.start <= 0 || partition.start >= disk.size()) {
        *error = QStringLiteral("分区 %1 在磁盘之外").arg(partition.number);
        return false;
    }
    partition.size = qMin(partition.size, disk.size() - partition.start);
    to->append(partition);
    return true;
}

/// Walks the chain of tables inside the extended partition. Each table holds one logical partition,
/// relative to itself, and the next table, relative to the extended partition.
bool readLogical(const Volume &disk, qint64 extendedStart, QVector<Partition> *partitions,
                 QString *error)
{
    QSet<qint64> seen;
    qint64 table = extendedStart;
    for (int number = kPrimaryEntries + 1; number < kPrimaryEntries + 1 + kMaxLogical;) {
        if (seen.contains(table)) {
            *error = QStringLiteral("扩展分区的链表成环");
            return false;
        }
        seen.insert(table);
        const Fields sector(disk.read(table, kSector, error));
        if (sector.le16(510) != 0xAA55) {
            *error = QStringLiteral("扩展分区表损坏");
            return false;
        }
        const MbrEntry logical = entryOf(sector, 0);
        if (logical.isUsed() && !logical.isExtended()) {
            if (!append(disk, {number, table + logical.start, logical.size, typeName(logical.type)},
                        partitions, error))
                return false;
            ++number;
        }
        const MbrEntry next = entryOf(sector, 1);
        if (!next.isUsed())
            return true;
        table = extendedStart + next.start;
    }
    *error = QStringLiteral("逻辑分区过多");
    return false;
}

} // namespace

bool readPartitionTable(const Volume &disk, QVector<Partition> *partitions, QString *error)
{
    QString ignored;
    QString *const told = error ? error : &ignored;
    partitions->clear();
    const Fields sector(disk.read(0, kSector));
    if (sector.le16(510) != 0xAA55)
        return true;

    QVector<MbrEntry> entries;
    for (int i = 0; i < kPrimaryEntries; ++i) {
        entries.append(entryOf(sector, i));
        // Boot code without a table ends in the same two bytes.
        if ((entries.last().flag & 0x7F) != 0)
            return true;
        if (entries.last().type == kProtectiveType)
            return readGpt(disk, partitions, told);
    }
    for (int i = 0; i < kPrimaryEntries; ++i) {
        const MbrEntry &entry = entries.at(i);
        if (!entry.isUsed())
            continue;
        const bool isRead =
            entry.isExtended()
                ? readLogical(disk, entry.start, partitions, told)
                : append(disk, {i + 1, entry.start, entry.size, typeName(entry.type)}, partitions,
                         told);
        if (!isRead)
            return false;
    }
    std::stable_sort(partitions->begin(), partitions->end(),
                     [](const Partition &a, const Partition &b) { return a.number < b.number; });
    return true;
}

QVector<Partition> gapsBetween(QVector<Partition> partitions, qint64 diskSize, qint64 smallest)
{
    std::sort(partitions.begin(), partitions.end(),
              [](const Partition &a, const Partition &b) { return a.start < b.start; });
    QVector<Partition> gaps;
    qint64 end = 0;
    const auto close = [&](qint64 start) {
        if (start - end >= smallest)
            gaps.append({0, end, start - end, QString()});
    };
    for (const Partition &partition : qAsConst(partitions)) {
        close(partition.start);
        end = qMax(end, partition.start + partition.size);
    }
    close(diskSize);
    return gaps;
}

} // namespace recoveryd
} // namespace services
