#include "recoveryd/devices/gpt.h"

#include "recoveryd/devices/bytes.h"

#include <QUuid>

#include <array>

namespace services {
namespace recoveryd {

namespace {

constexpr int kHeaderSize = 92;
constexpr quint32 kMaxEntries = 1024;
constexpr quint32 kMinEntrySize = 128;
constexpr quint32 kMaxEntrySize = 4096;
constexpr int kNameAt = 56;
constexpr int kNameLength = 36; // UTF-16 units

std::array<quint32, 256> crcTable()
{
    std::array<quint32, 256> table = {};
    for (quint32 i = 0; i < 256; ++i) {
        quint32 value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1) ? 0xEDB88320u ^ (value >> 1) : value >> 1;
        table[i] = value;
    }
    return table;
}

/// GUIDs on disk have their first three fields in little-endian order.
QString guidAt(const Fields &entry, int at)
{
    const quint64 tail = entry.be64(at + 8);
    uchar rest[8];
    qToBigEndian(tail, rest);
    return QUuid(entry.le32(at), entry.le16(at + 4), entry.le16(at + 6), rest[0], rest[1], rest[2],
                 rest[3], rest[4], rest[5], rest[6], rest[7])
        .toString()
        .mid(1, 36);
}

QString typeName(const QString &guid)
{
    static const QHash<QString, QString> names = {
        {QStringLiteral("c12a7328-f81f-11d2-ba4b-00a0c93ec93b"), QStringLiteral("EFI System")},
        {QStringLiteral("0fc63daf-8483-4772-8e79-3d69d8477de4"), QStringLiteral("Linux 文件系统")},
        {QStringLiteral("0657fd6d-a4ab-43c4-84e5-0933c84b4f4f"), QStringLiteral("Linux Swap")},
        {QStringLiteral("e6d6d379-f507-44c2-a23c-238f2a3df928"), QStringLiteral("Linux LVM")},
    };
    return names.value(guid);
}

QString nameOf(const QByteArray &entry)
{
    const Fields fields(entry);
    QString name;
    for (int i = 0; i < kNameLength; ++i) {
        const quint16 unit = fields.le16(kNameAt + 2 * i);
        if (unit == 0)
            break;
        name.append(QChar(unit));
    }
    return name.isEmpty() ? typeName(guidAt(fields, 0)) : name;
}

/// The table whose header stands in sector `lba`; false if a checksum fails or a field is absurd.
bool readCopy(const Volume &disk, qint64 sectorSize, qint64 lba, QVector<Partition> *partitions)
{
    QByteArray header = disk.read(lba * sectorSize, kHeaderSize);
    const Fields fields(header);
    if (!fields.isAt(0, "EFI PART", 8) || fields.le32(12) != quint32(kHeaderSize))
        return false;
    const quint32 headerSum = fields.le32(16);
    const quint64 entriesLba = fields.le64(72);
    const quint32 count = fields.le32(80);
    const quint32 entrySize = fields.le32(84);
    header.replace(16, 4, QByteArray(4, '\0'));
    if (crc32(header.constData(), header.size()) != headerSum || count > kMaxEntries ||
        entrySize < kMinEntrySize || entrySize > kMaxEntrySize ||
        entriesLba > quint64(disk.size() / sectorSize))
        return false;

    const QByteArray entries =
        disk.read(qint64(entriesLba) * sectorSize, qint64(count) * entrySize);
    if (entries.isEmpty() || crc32(entries.constData(), entries.size()) != fields.le32(88))
        return false;
    const quint64 sectors = quint64(disk.size() / sectorSize);
    for (quint32 i = 0; i < count; ++i) {
        const QByteArray entry = entries.mid(int(i * entrySize), int(entrySize));
        const Fields at(entry);
        const quint64 first = at.le64(32);
        const quint64 last = at.le64(40);
        if (at.le64(0) == 0 && at.le64(8) == 0)
            continue;
        if (first == 0 || first >= sectors || last < first)
            return false;
        const quint64 end = qMin(last, sectors - 1) + 1;
        partitions->append({int(i) + 1, qint64(first) * sectorSize,
                            qint64(end - first) * sectorSize, nameOf(entry)});
    }
    return true;
}

} // namespace

quint32 crc32(const char *bytes, qint64 length, quint32 previous)
{
    static const std::array<quint32, 256> table = crcTable();
    quint32 sum = ~previous;
    for (qint64 i = 0; i < length; ++i)
        sum = table[(sum ^ quint8(bytes[i])) & 0xFF] ^ (sum >> 8);
    return ~sum;
}

bool readGpt(const Volume &disk, QVector<Partition> *partitions, QString *error)
{
    for (const qint64 sectorSize : {qint64(512), qint64(4096)}) {
        for (const qint64 lba : {qint64(1), disk.size() / sectorSize - 1}) {
            partitions->clear();
            if (readCopy(disk, sectorSize, lba, partitions))
                return true;
        }
    }
    partitions->clear();
    *error = QStringLiteral("GPT 分区表的两份副本都已损坏");
    return false;
}

} // namespace recoveryd
} // namespace services
