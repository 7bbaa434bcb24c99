#include "recoveryd/ntfs/filename.h"

#include "recoveryd/ntfs/record.h"
#include "recoveryd/scan/finding.h"

#include <QtEndian>

namespace services::recoveryd::ntfs {

namespace {

constexpr int kFixedPart = 0x42;

bool isPlausible(const char *value, const FileName &name)
{
    if (sequenceOf(name.parent) == 0 || numberOf(name.parent) > 0xFFFFFFFFULL ||
        name.dataSize < 0 || name.nameSpace > FileName::Win32AndDos)
        return false;
    for (int at = 0x08; at < 0x28; at += 8)
        if (msFromFileTime(qFromLittleEndian<quint64>(value + at)) == Finding::kUnknownTime)
            return false;
    const qint64 allocated = qFromLittleEndian<qint64>(value + 0x28);
    if (allocated < 0 || allocated % 8 != 0)
        return false;
    const int count = quint8(value[0x40]);
    for (int i = 0; i < count; ++i)
        if (qFromLittleEndian<quint16>(value + kFixedPart + 2 * i) < 0x20)
            return false;
    return true;
}

} // namespace

bool parseFileName(const char *value, int length, bool isStrict, FileName *name)
{
    if (length < kFixedPart + 2)
        return false;
    const int count = quint8(value[0x40]);
    if (count == 0 || kFixedPart + 2 * count > length)
        return false;
    name->parent = qFromLittleEndian<quint64>(value);
    name->createdTime = qFromLittleEndian<quint64>(value + 0x08);
    name->modifiedTime = qFromLittleEndian<quint64>(value + 0x10);
    name->changedTime = qFromLittleEndian<quint64>(value + 0x18);
    name->dataSize = qFromLittleEndian<qint64>(value + 0x30);
    name->attributes = qFromLittleEndian<quint32>(value + 0x38);
    name->nameSpace = quint8(value[0x41]);
    if (isStrict && !isPlausible(value, *name))
        return false;
    name->name = nameFromUtf16(value + kFixedPart, count);
    return true;
}

} // namespace services::recoveryd::ntfs
