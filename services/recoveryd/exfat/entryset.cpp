#include "recoveryd/exfat/entryset.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/fat/dostime.h"

namespace services::recoveryd::exfat {

namespace {

constexpr quint8 kInUse = 0x80;
constexpr quint8 kFile = 0x05;
constexpr quint8 kStream = 0x40;
constexpr quint8 kName = 0x41;
constexpr quint8 kBitmap = 0x81;
constexpr quint8 kUpcase = 0x82;
constexpr quint8 kSecondary = 0x40;
constexpr int kMostSecondary = 18;
constexpr int kNameUnits = 15; ///< In a slot.
constexpr quint16 kDirectory = 0x10;
constexpr quint8 kNoChain = 0x02;
constexpr int kTriedSlots = 64;

/// The offset from UTC in minutes; false if the driver did not know it.
bool offsetOf(quint8 code, int *minutes)
{
    const int quarters = code & 0x40 ? int(code & 0x7F) - 0x80 : code & 0x7F;
    *minutes = quarters * 15;
    return (code & 0x80) != 0;
}

qint64 msOf(quint32 stamp, quint8 hundredths, quint8 offset)
{
    int minutes = 0;
    const bool isUtc = offsetOf(offset, &minutes);
    const qint64 ms = fat::msOfDosTime(quint16(stamp >> 16), quint16(stamp & 0xFFFF), hundredths,
                                       isUtc ? Qt::UTC : Qt::LocalTime);
    return ms == Finding::kUnknownTime || !isUtc ? ms : ms - qint64(minutes) * 60000;
}

} // namespace

bool EntrySetReader::feed(const char *slot)
{
    const quint8 type = quint8(slot[0]);
    if ((type & ~kInUse) == kFile) {
        const int secondary = quint8(slot[1]);
        m_set.clear();
        if (secondary < 2 || secondary > kMostSecondary)
            return false;
        m_expected = secondary + 1;
        m_set.append(slot, kSlot);
        return false;
    }
    if (m_set.isEmpty())
        return false;
    const bool isSameUse = ((quint8(m_set.at(0)) ^ type) & kInUse) == 0;
    if (!(type & kSecondary) || !isSameUse) {
        m_set.clear();
        return false;
    }
    m_set.append(slot, kSlot);
    if (m_set.size() < m_expected * kSlot)
        return false;
    const bool isGood = isSound() && parse();
    m_set.clear();
    return isGood;
}

/// The checksum was made while the set was in use.
bool EntrySetReader::isSound() const
{
    quint16 sum = 0;
    for (int i = 0; i < m_set.size(); ++i) {
        if (i == 2 || i == 3)
            continue;
        const quint8 byte = quint8(m_set.at(i)) | (i % kSlot == 0 ? kInUse : 0);
        sum = quint16((sum << 15 | sum >> 1) + byte);
    }
    return sum == Fields(m_set).le16(2);
}

bool EntrySetReader::parse()
{
    const Fields set(m_set);
    if ((set.u8(kSlot) & ~kInUse) != kStream)
        return false;
    const int nameLength = set.u8(kSlot + 3);
    QVector<ushort> units;
    for (int at = 2 * kSlot; at < m_set.size() && units.size() < nameLength; at += kSlot) {
        if ((set.u8(at) & ~kInUse) != kName)
            return false;
        for (int i = 0; i < kNameUnits && units.size() < nameLength; ++i)
            units.append(set.le16(at + 2 + 2 * i));
    }
    const quint64 size = set.le64(kSlot + 24);
    const quint64 written = set.le64(kSlot + 8);
    if (units.isEmpty() || units.size() < nameLength || size > (quint64(1) << 62))
        return false;
    QString name = QString::fromUtf16(units.constData(), units.size());
    name.replace(QLatin1Char('/'), QLatin1Char('_'));
    m_entry = fat::DirectoryEntry();
    m_entry.name = name.toUtf8();
    m_entry.isDeleted = (set.u8(0) & kInUse) == 0;
    m_entry.isDirectory = (set.le16(4) & kDirectory) != 0;
    m_entry.isContiguous = (set.u8(kSlot + 1) & kNoChain) != 0;
    m_entry.firstCluster = set.le32(kSlot + 20);
    m_entry.size = qint64(size);
    m_entry.written = qint64(qMin(size, written));
    m_entry.createdMs = msOf(set.le32(8), set.u8(20), set.u8(22));
    m_entry.modifiedMs = msOf(set.le32(12), set.u8(21), set.u8(23));
    return true;
}

bool hasEntrySets(const char *bytes, int length)
{
    // A directory may go on here in the middle of a set.
    EntrySetReader reader;
    for (int i = 0; i < kTriedSlots && (i + 1) * kSlot <= length; ++i) {
        if (reader.feed(bytes + i * kSlot))
            return true;
        const quint8 type = quint8(bytes[i * kSlot]) & ~kInUse;
        const bool isEntry = type == kFile || (type & kSecondary) != 0 || type < 4;
        if (!isEntry || bytes[i * kSlot] == 0)
            return false;
    }
    return false;
}

bool hasEntrySetAnywhere(const char *bytes, int length)
{
    EntrySetReader reader;
    for (int at = 0; at + kSlot <= length; at += kSlot)
        if (reader.feed(bytes + at))
            return true;
    return false;
}

bool isRootDirectory(const char *bytes, int length)
{
    bool hasBitmap = false;
    bool hasUpcase = false;
    for (int i = 0; i < kTriedSlots && (i + 1) * kSlot <= length; ++i) {
        hasBitmap = hasBitmap || quint8(bytes[i * kSlot]) == kBitmap;
        hasUpcase = hasUpcase || quint8(bytes[i * kSlot]) == kUpcase;
    }
    return hasBitmap && hasUpcase;
}

} // namespace services::recoveryd::exfat
