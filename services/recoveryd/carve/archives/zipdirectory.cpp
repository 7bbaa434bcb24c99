#include "recoveryd/carve/archives/zipdirectory.h"

#include <QtEndian>

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kEntrySize = 46;
constexpr qint64 kLocalSize = 30;
constexpr int kMaxNames = 512;
constexpr quint16 kSizesFollowData = 0x8;

struct LocalHeader
{
    bool isValid = false;
    QByteArray name;
    qint64 data = 0; ///< Where the entry's bytes begin.
    qint64 size = 0; ///< As stored; unknown where sizesFollow.
    bool sizesFollow = false;
    bool isStored = false;
};

LocalHeader readLocal(WindowReader &reader, qint64 at)
{
    LocalHeader local;
    const uchar *const head = reader.at(at, kLocalSize);
    if (!head || std::memcmp(head, "PK\x03\x04", 4) != 0)
        return local;
    local.sizesFollow = (qFromLittleEndian<quint16>(head + 6) & kSizesFollowData) != 0;
    local.isStored = qFromLittleEndian<quint16>(head + 8) == 0;
    local.size = qFromLittleEndian<quint32>(head + 18);
    const qint64 nameLength = qFromLittleEndian<quint16>(head + 26);
    const qint64 extraLength = qFromLittleEndian<quint16>(head + 28);
    local.data = at + kLocalSize + nameLength + extraLength;
    const uchar *const name = reader.at(at + kLocalSize, nameLength);
    if (!name)
        return local;
    local.name = QByteArray(reinterpret_cast<const char *>(name), int(nameLength));
    local.isValid = true;
    return local;
}

/// An OpenDocument begins with a stored entry that names its type.
QByteArray mimeTypeAt(WindowReader &reader, qint64 start)
{
    constexpr qint64 kLongest = 100;
    const LocalHeader first = readLocal(reader, start);
    if (!first.isValid || first.name != "mimetype" || !first.isStored || first.sizesFollow ||
        first.size > kLongest)
        return QByteArray();
    const uchar *const content = reader.at(first.data, first.size);
    return content ? QByteArray(reinterpret_cast<const char *>(content), int(first.size))
                   : QByteArray();
}

/// One entry of the central directory.
struct Entry
{
    QByteArray name;
    qint64 localAt = 0;
    qint64 storedSize = 0;
    qint64 size = 0;
    quint32 crc = 0;
    int method = 0;
    bool isEncrypted = false;
};

/// Reads the entry at `*at` and steps behind it.
bool readEntry(WindowReader &reader, qint64 start, qint64 *at, qint64 end, Entry *entry)
{
    const uchar *const bytes = *at + kEntrySize <= end ? reader.at(*at, kEntrySize) : nullptr;
    if (!bytes || std::memcmp(bytes, "PK\x01\x02", 4) != 0)
        return false;
    entry->isEncrypted = (bytes[8] & 1) != 0;
    entry->method = qFromLittleEndian<quint16>(bytes + 10);
    entry->crc = qFromLittleEndian<quint32>(bytes + 16);
    entry->storedSize = qFromLittleEndian<quint32>(bytes + 20);
    entry->size = qFromLittleEndian<quint32>(bytes + 24);
    entry->localAt = start + qFromLittleEndian<quint32>(bytes + 42);
    const qint64 nameLength = qFromLittleEndian<quint16>(bytes + 28);
    const qint64 tailLength =
        qint64(qFromLittleEndian<quint16>(bytes + 30)) + qFromLittleEndian<quint16>(bytes + 32);
    const uchar *const name = reader.at(*at + kEntrySize, nameLength);
    if (!name)
        return false;
    entry->name = QByteArray(reinterpret_cast<const char *>(name), int(nameLength));
    *at += kEntrySize + nameLength + tailLength;
    return true;
}

/// Unpacks one entry whose bytes begin at `data` and compares its checksum.
Decoded checkEntry(const Peek &zip, const Entry &entry, qint64 data, DecodingBudget *budget)
{
    constexpr int kStored = 0;
    constexpr int kDeflated = 8;
    if (entry.isEncrypted || (entry.method != kStored && entry.method != kDeflated))
        return Decoded::Unknown;
    if (entry.method == kStored) {
        quint32 crc = 0;
        const Decoded sum = crcOf(zip, data, entry.storedSize, budget, &crc);
        return sum != Decoded::Good ? sum : crc == entry.crc ? Decoded::Good : Decoded::Bad;
    }
    const Unpacked unpacked =
        unpackStream(zip, data, data + entry.storedSize, Unpacker::Format::Deflate, budget);
    if (unpacked.result != Decoded::Good)
        return unpacked.result;
    return unpacked.size == entry.size && unpacked.crc == entry.crc ? Decoded::Good : Decoded::Bad;
}

/// One bad entry makes the archive bad.
Decoded checkEntries(WindowReader &reader, qint64 start, const QVector<Entry> &entries)
{
    const Peek zip(reader, start);
    DecodingBudget budget;
    Decoded all = Decoded::Good;
    for (const Entry &entry : entries) {
        const LocalHeader local = readLocal(reader, entry.localAt);
        const Decoded one = checkEntry(zip, entry, local.data - start, &budget);
        if (one == Decoded::Bad)
            return one;
        if (one == Decoded::Unknown)
            all = one;
    }
    return all;
}

} // namespace

ZipDirectory readZipDirectory(WindowReader &reader, qint64 start, qint64 at, qint64 size, int count)
{
    ZipDirectory directory;
    const qint64 end = at + size;
    QVector<Entry> entries;
    for (int i = 0; i < count; ++i) {
        Entry entry;
        if (!readEntry(reader, start, &at, end, &entry))
            return directory;
        if (directory.names.size() < kMaxNames)
            directory.names.append(entry.name);
        entries.append(entry);
    }
    directory.isWhole = at == end;
    directory.end = end;
    directory.mimeType = mimeTypeAt(reader, start);
    // In the order of the archive, so that the reader's window only moves forward.
    std::sort(entries.begin(), entries.end(),
              [](const Entry &a, const Entry &b) { return a.localAt < b.localAt; });
    directory.allEntriesThere =
        directory.isWhole && count > 0 &&
        std::all_of(entries.begin(), entries.end(), [&reader, end](const Entry &entry) {
            const LocalHeader local = readLocal(reader, entry.localAt);
            return local.isValid && local.name == entry.name &&
                   local.data + entry.storedSize <= end;
        });
    if (directory.allEntriesThere)
        directory.contents = checkEntries(reader, start, entries);
    return directory;
}

ZipDirectory readLocalEntries(WindowReader &reader, qint64 start, qint64 limit)
{
    ZipDirectory found;
    found.mimeType = mimeTypeAt(reader, start);
    found.end = start;
    while (found.end < limit && found.names.size() < kMaxNames) {
        const LocalHeader local = readLocal(reader, found.end);
        if (!local.isValid)
            break;
        found.names.append(local.name);
        if (local.sizesFollow || local.data + local.size > limit)
            break;
        found.end = local.data + local.size;
    }
    return found;
}

void setZipType(const QByteArrayList &names, const QByteArray &mimeType, CarvedFile *file)
{
    const auto has = [&names](const char *prefix) {
        return std::any_of(names.begin(), names.end(),
                           [prefix](const QByteArray &name) { return name.startsWith(prefix); });
    };
    static const struct
    {
        const char *mimeType;
        const char *suffix;
    } byMimeType[] = {{"application/vnd.oasis.opendocument.text", "odt"},
                      {"application/vnd.oasis.opendocument.spreadsheet", "ods"},
                      {"application/vnd.oasis.opendocument.presentation", "odp"},
                      {"application/vnd.oasis.opendocument.graphics", "odg"},
                      {"application/epub+zip", "epub"}};
    static const struct
    {
        const char *first;
        const char *second;
        const char *suffix;
    } byNames[] = {{"[Content_Types].xml", "word/", "docx"},
                   {"[Content_Types].xml", "xl/", "xlsx"},
                   {"[Content_Types].xml", "ppt/", "pptx"},
                   {"[Content_Types].xml", "visio/", "vsdx"},
                   {"OFD.xml", "", "ofd"},
                   {"AndroidManifest.xml", "", "apk"},
                   {"META-INF/container.xml", "", "epub"},
                   {"Payload/", "", "ipa"},
                   {"META-INF/MANIFEST.MF", "", "jar"},
                   {"content.json", "metadata.json", "xmind"}};
    for (const auto &kind : byMimeType)
        if (mimeType.startsWith(kind.mimeType))
            return file->setKind(kind.suffix);
    for (const auto &kind : byNames)
        if (has(kind.first) && has(kind.second))
            return file->setKind(kind.suffix);
    file->setKind("zip");
}

} // namespace services::recoveryd
