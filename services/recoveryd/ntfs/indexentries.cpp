#include "recoveryd/ntfs/indexentries.h"

#include "recoveryd/ntfs/record.h"

#include <QtEndian>

namespace services::recoveryd::ntfs {

namespace {

constexpr int kHeader = 0x10;
constexpr int kFixedKey = 0x42;

/// Length of the entry at `at`, 0 if there is none.
int entryAt(const char *at, int left, FileName *name)
{
    if (left < kHeader + kFixedKey + 2)
        return 0;
    const int length = qFromLittleEndian<quint16>(at + 8);
    const int keyLength = qFromLittleEndian<quint16>(at + 10);
    const int flags = qFromLittleEndian<quint16>(at + 12);
    const int nameLength = quint8(at[kHeader + 0x40]);
    if (keyLength != kFixedKey + 2 * nameLength || length % 8 != 0 ||
        length < kHeader + keyLength || length > left || flags > 3 ||
        sequenceOf(qFromLittleEndian<quint64>(at)) == 0)
        return 0;
    return parseFileName(at + kHeader, keyLength, true, name) ? length : 0;
}

} // namespace

void forEachIndexEntry(const char *bytes, int length, const IndexEntryHandler &handle)
{
    constexpr int kStep = 8;
    for (int at = 0; at + kHeader + kFixedKey <= length;) {
        FileName name;
        const int entryLength = entryAt(bytes + at, length - at, &name);
        if (entryLength > 0)
            handle(qFromLittleEndian<quint64>(bytes + at), name);
        // A stale entry may begin within what an overwritten one claims, so the claim is passed
        // only as far as the name goes.
        at += entryLength > 0
                  ? (kHeader + kFixedKey + 2 * quint8(bytes[at + kHeader + 0x40])) / kStep * kStep
                  : kStep;
    }
}

} // namespace services::recoveryd::ntfs
