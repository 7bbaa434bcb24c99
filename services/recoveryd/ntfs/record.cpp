#include "recoveryd/ntfs/record.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/scan/finding.h"

#include <QString>
#include <QtEndian>

#include <cstring>

namespace services::recoveryd::ntfs {

namespace {

constexpr int kMinRecord = 512;
constexpr int kMaxRecord = 16384;
constexpr int kMaxAttributes = 512;
constexpr int kHeaderSize = 0x28;
constexpr quint32 kEndMarker = 0xFFFFFFFFU;
constexpr quint64 kEpochInFileTime = 116444736000000000ULL; ///< 1970 in units of 100 ns since 1601.
constexpr qint64 kMaxPlausibleMs = 7258118400000LL;         ///< 2200.

quint16 u16(const char *at)
{
    return qFromLittleEndian<quint16>(at);
}

bool parseResident(const Fields &fields, int at, int length, Attribute *attribute)
{
    const quint32 valueLength = fields.le32(at + 0x10);
    const int valueOffset = fields.le16(at + 0x14);
    if (valueOffset > length || valueLength > quint32(length - valueOffset))
        return false;
    attribute->valueAt = at + valueOffset;
    attribute->valueLength = int(valueLength);
    return true;
}

bool parseNonResident(const Fields &fields, int at, int length, Attribute *attribute)
{
    constexpr int kMinLength = 0x40;
    const int runsOffset = fields.le16(at + 0x20);
    if (length < kMinLength || runsOffset < kMinLength || runsOffset > length)
        return false;
    attribute->isResident = false;
    attribute->runsAt = at + runsOffset;
    attribute->runsEnd = at + length;
    attribute->lowestVcn = qint64(fields.le64(at + 0x10));
    attribute->highestVcn = qint64(fields.le64(at + 0x18));
    attribute->compressionUnit = fields.u8(at + 0x22);
    attribute->allocatedSize = qint64(fields.le64(at + 0x28));
    attribute->dataSize = qint64(fields.le64(at + 0x30));
    attribute->initialisedSize = qint64(fields.le64(at + 0x38));
    return attribute->lowestVcn >= 0;
}

/// False where the list of attributes cannot go on.
bool parseAttribute(const QByteArray &bytes, const Fields &fields, int at, int length,
                    Attribute *attribute)
{
    attribute->at = at;
    attribute->type = fields.le32(at);
    attribute->flags = fields.le16(at + 0x0C);
    const int nameLength = fields.u8(at + 9);
    const int nameOffset = fields.le16(at + 0x0A);
    if (nameLength > 0) {
        if (nameOffset + nameLength * 2 > length)
            return false;
        attribute->name = nameFromUtf16(bytes.constData() + at + nameOffset, nameLength);
    }
    return fields.u8(at + 8) == 0 ? parseResident(fields, at, length, attribute)
                                  : parseNonResident(fields, at, length, attribute);
}

void parseAttributes(int end, Record *record)
{
    const Fields fields(record->bytes);
    int at = fields.le16(0x14);
    for (int count = 0; count < kMaxAttributes && at >= kHeaderSize && at + 16 <= end; ++count) {
        const quint32 type = fields.le32(at);
        const quint32 length = fields.le32(at + 4);
        if (type == kEndMarker)
            return;
        if (type == 0 || length < 0x18 || length % 8 != 0 || length > quint32(end - at))
            break;
        Attribute attribute;
        if (parseAttribute(record->bytes, fields, at, int(length), &attribute))
            record->attributes.append(attribute);
        at += int(length);
    }
}

/// The header and the attributes within the first `whole` bytes.
void parseBody(int whole, Record *record)
{
    const Fields fields(record->bytes);
    record->lsn = fields.le64(8);
    record->sequence = fields.le16(0x10);
    record->linkCount = fields.le16(0x12);
    record->flags = fields.le16(0x16);
    record->base = fields.le64(0x20);
    // The fixup array begins behind the record's own number since NTFS 3.1.
    record->number = fields.le16(4) >= 0x30 ? fields.le32(0x2C) : kUnknownNumber;
    record->attributes.clear();
    parseAttributes(qMin(int(fields.le32(0x18)), whole), record);
}

} // namespace

const Attribute *Record::find(quint32 type, const char *name) const
{
    for (const Attribute &attribute : attributes)
        if (attribute.type == type && attribute.name == name)
            return &attribute;
    return nullptr;
}

int undoFixups(char *block, int size)
{
    const int arrayAt = u16(block + 4);
    const int count = u16(block + 6) - 1;
    if (count < 1 || size % count != 0 || arrayAt % 2 != 0 || arrayAt < 0x18)
        return 0;
    const int stride = size / count;
    if (stride < 256 || !isPowerOfTwo(quint32(stride)) || arrayAt + 2 * (count + 1) > stride - 2)
        return 0;
    const char *array = block + arrayAt;
    int whole = 0;
    for (int i = 0; i < count; ++i) {
        char *tail = block + (i + 1) * stride - 2;
        if (std::memcmp(tail, array, 2) != 0)
            break;
        std::memcpy(tail, array + 2 * (i + 1), 2);
        whole += stride;
    }
    return whole;
}

bool looksLikeRecord(const char *bytes, int size)
{
    if (size < kMinRecord || std::memcmp(bytes, "FILE", 4) != 0)
        return false;
    const quint32 used = qFromLittleEndian<quint32>(bytes + 0x18);
    const quint32 allocated = qFromLittleEndian<quint32>(bytes + 0x1C);
    return allocated >= kMinRecord && allocated <= kMaxRecord && isPowerOfTwo(allocated) &&
           used >= kHeaderSize && used <= allocated && u16(bytes + 0x14) < allocated;
}

bool parseRecord(const char *bytes, int size, Record *record)
{
    if (!looksLikeRecord(bytes, size))
        return false;
    const int allocated = int(qFromLittleEndian<quint32>(bytes + 0x1C));
    if (allocated > size)
        return false;
    record->bytes = QByteArray(bytes, allocated);
    const int whole = undoFixups(record->bytes.data(), allocated);
    if (whole == 0)
        return false;
    record->isTorn = whole < allocated;
    parseBody(whole, record);
    return true;
}

bool parseRecordImage(const char *bytes, int size, Record *record)
{
    if (!looksLikeRecord(bytes, size))
        return false;
    const int used = int(qFromLittleEndian<quint32>(bytes + 0x18));
    if (used > size)
        return false;
    record->bytes = QByteArray(bytes, used);
    record->isTorn = false;
    parseBody(used, record);
    return !record->attributes.isEmpty();
}

QByteArray nameFromUtf16(const char *units, int count)
{
    QString text;
    text.reserve(count);
    for (int i = 0; i < count; ++i) {
        const QChar unit(u16(units + 2 * i));
        const QChar next(i + 1 < count ? u16(units + 2 * (i + 1)) : quint16(0));
        if (unit.isHighSurrogate() && next.isLowSurrogate()) {
            text += unit;
            text += next;
            ++i;
        } else if (unit.isSurrogate()) {
            text += QChar(QChar::ReplacementCharacter);
        } else {
            text += unit.isNull() || unit == QLatin1Char('/') ? QChar(QLatin1Char('_')) : unit;
        }
    }
    return text.toUtf8();
}

qint64 msFromFileTime(quint64 fileTime)
{
    if (fileTime < kEpochInFileTime / 2 || fileTime > quint64(std::numeric_limits<qint64>::max()))
        return Finding::kUnknownTime;
    const qint64 ms = (qint64(fileTime) - qint64(kEpochInFileTime)) / 10000;
    return ms > kMaxPlausibleMs ? Finding::kUnknownTime : ms;
}

} // namespace services::recoveryd::ntfs
