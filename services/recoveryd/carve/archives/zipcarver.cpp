#include "recoveryd/carve/archives/archivecarvers.h"
#include "recoveryd/carve/archives/zipdirectory.h"

#include <QtEndian>

namespace services::recoveryd {

namespace {

constexpr qint64 kMaxZip = qint64(2) << 30;
constexpr qint64 kCutLength = 4 * 1024 * 1024;
constexpr qint64 kEndRecordSize = 22;
constexpr int kMaxEndRecords = 256; // of archives stored inside this one

bool isVersion(quint16 version)
{
    return version >= 10 && version <= 63;
}

} // namespace

bool carveZip(WindowReader &reader, qint64 start, CarvedFile *file)
{
    const uchar *const head = reader.at(start, 30);
    if (!head || !isVersion(head[4]) || qFromLittleEndian<quint16>(head + 26) == 0)
        return false;
    file->evidence = Evidence::Header;
    const qint64 limit = qMin(reader.end(), start + kMaxZip);
    qint64 from = start;
    for (int i = 0; i < kMaxEndRecords; ++i) {
        const qint64 at = reader.find(from, limit, "PK\x05\x06", 4);
        const uchar *const record = at < 0 ? nullptr : reader.at(at, kEndRecordSize);
        if (!record)
            break;
        from = at + 4;
        const qint64 directorySize = qFromLittleEndian<quint32>(record + 12);
        const qint64 directoryStart = qFromLittleEndian<quint32>(record + 16);
        const int count = qFromLittleEndian<quint16>(record + 10);
        const qint64 length = at + kEndRecordSize + qFromLittleEndian<quint16>(record + 20);
        if (start + directoryStart + directorySize != at || length > limit)
            continue;
        const ZipDirectory directory =
            readZipDirectory(reader, start, start + directoryStart, directorySize, count);
        if (!directory.isWhole)
            continue;
        file->length = length - start;
        file->evidence = directory.allEntriesThere ? Evidence::Container : Evidence::End;
        file->isDamaged = directory.contents == Decoded::Bad;
        file->isDecoded = directory.contents == Decoded::Good;
        file->examined = file->length;
        setZipType(directory.names, directory.mimeType, file);
        return true;
    }
    const ZipDirectory local = readLocalEntries(reader, start, limit);
    if (local.names.size() > 1)
        file->evidence = Evidence::Structure;
    file->length = qMin(limit - start, qMax(kCutLength, local.end - start));
    setZipType(local.names, local.mimeType, file);
    return true;
}

} // namespace services::recoveryd
