#include "recoveryd/xfs/log.h"

#include <algorithm>

namespace services::recoveryd::xfs {

namespace {

constexpr quint32 kMagic = 0xFEEDBABE;
constexpr int kSector = 512;
constexpr int kSectorsPerHeader = 64; ///< Data sectors whose first words one header sector keeps.
constexpr int kMaxRecord = 4 * 1024 * 1024;
constexpr qint64 kMaxTransaction = 96 * 1024 * 1024;
constexpr int kMaxOpen = 64;
constexpr int kMaxRegions = 2000000;
constexpr int kOperationHeader = 12;
constexpr quint8 kTransactionClient = 0x69;

// Flags of an operation.
constexpr quint8 kStart = 0x01;
constexpr quint8 kCommit = 0x02;
constexpr quint8 kContinues = 0x04;
constexpr quint8 kWasContinued = 0x08;
constexpr quint8 kUnmount = 0x20;

qint64 placeOf(quint64 lsn)
{
    return qint64(lsn & 0xFFFFFFFFU) * kSector;
}

} // namespace

Log::Log(const MediaReader &media, const Geometry &geometry)
    : m_media(media)
{
    constexpr qint64 kMaxLog = qint64(4) << 30;
    const qint64 size = qint64(geometry.logBlocks) * geometry.blockSize;
    const qint64 start = geometry.logStart == 0 ? -1 : geometry.offsetOfBlock(geometry.logStart);
    if (start >= 0 && size >= 2 * kSector && size <= kMaxLog && size <= media.size() - start) {
        m_start = start;
        m_size = size;
    }
}

QByteArray Log::readRing(qint64 at, qint64 length) const
{
    at %= m_size;
    const qint64 first = qMin(length, m_size - at);
    QByteArray bytes = m_media.read(m_start + at, first);
    if (first < length)
        bytes += m_media.read(m_start, qMin(length - first, m_size));
    return bytes;
}

quint32 Log::cycleAt(qint64 sector) const
{
    const QByteArray bytes = m_media.read(m_start + sector * kSector, 8);
    const View view(bytes);
    return view.u32(0) == kMagic ? view.u32(4) : view.u32(0);
}

qint64 Log::findHead() const
{
    const qint64 sectors = m_size / kSector;
    const quint32 first = cycleAt(0);
    if (cycleAt(sectors - 1) == first)
        return first == 0 ? 0 : sectors;
    qint64 low = 0; // has the newest cycle
    qint64 high = sectors - 1;
    while (high - low > 1) {
        const qint64 middle = low + (high - low) / 2;
        (cycleAt(middle) == first ? low : high) = middle;
    }
    return high;
}

bool Log::parseRecord(const View &view, qint64 at, Record *record) const
{
    if (view.u32(0) != kMagic)
        return false;
    const quint32 version = view.u32(8);
    const quint32 length = view.u32(12);
    record->lsn = view.u64(16);
    record->tail = view.u64(24);
    record->operations = view.u32(40);
    record->order = view.u32(300) == 2 ? Order::Big : Order::Little;
    const quint32 bufferSize = view.u32(320);
    record->at = at;
    record->length = int(qMin(length, quint32(kMaxRecord)));
    const quint32 covered = kSectorsPerHeader * kSector;
    const quint32 headers =
        (version & 2) != 0 && bufferSize > covered ? (bufferSize + covered - 1) / covered : 1;
    record->headerSize = int(qMin(headers, 128U)) * kSector;
    return version >= 1 && version <= 3 && length > 0 && length <= quint32(kMaxRecord) &&
           placeOf(record->lsn) == at && quint32(record->lsn >> 32) == view.u32(4) &&
           record->headerSize + record->length <= m_size;
}

bool Log::findLastRecord(Record *record) const
{
    const qint64 head = findHead();
    if (head == 0)
        return false;
    // A record holds at most one buffer of the log, 256 KiB, and torn ones may follow it.
    const qint64 most = qMin(head, qint64(2 * 1024 * 1024 / kSector));
    const QByteArray bytes = m_media.read(m_start + (head - most) * kSector, most * kSector);
    for (qint64 i = most - 1; i >= 0; --i) {
        Record found;
        if (!parseRecord(View(bytes).from(int(i * kSector)), (head - most + i) * kSector, &found))
            continue;
        *record = found;
        return true;
    }
    // The newest one may have begun at the end of the ring.
    const qint64 behind = m_size - qMin(m_size, qint64(2 * 1024 * 1024));
    const QByteArray end = m_media.read(m_start + behind, m_size - behind);
    for (qint64 i = end.size() / kSector - 1; i >= 0; --i)
        if (parseRecord(View(end).from(int(i * kSector)), behind + i * kSector, record))
            return true;
    return false;
}

bool Log::isUnmount(const Record &record) const
{
    const QByteArray bytes = readRing(record.at + record.headerSize, kOperationHeader);
    return record.operations == 1 && (View(bytes).u8(9) & kUnmount) != 0;
}

Log::State Log::state() const
{
    State state;
    Record last;
    if (!isInside() || !findLastRecord(&last))
        return state;
    state.isClean = isUnmount(last);
    state.tail = state.isClean ? last.lsn : last.tail;
    return state;
}

/// The data of a record as they were before they were stamped; shorter where later writes have
/// reached it.
QByteArray Log::unpack(const Record &record) const
{
    const QByteArray headers = readRing(record.at, record.headerSize);
    QByteArray data = readRing(record.at + record.headerSize, record.length);
    const View view(headers);
    const quint32 cycle = quint32(record.lsn >> 32);
    for (int i = 0; i * kSector < data.size(); ++i) {
        const bool isWrapped = record.at + record.headerSize + qint64(i) * kSector >= m_size;
        const int header = i / kSectorsPerHeader;
        const int word = i % kSectorsPerHeader;
        // The first header has the words behind 44 bytes, the others behind their cycle.
        const int place = header == 0 ? 44 + 4 * word : header * kSector + 4 + 4 * word;
        if (View(data).u32(i * kSector) != (isWrapped ? cycle + 1 : cycle) ||
            place + 4 > headers.size() || i * kSector + 4 > data.size()) {
            data.truncate(i * kSector);
            break;
        }
        std::memcpy(data.data() + i * kSector, view.at(place), 4);
    }
    return data;
}

void Log::readOperations(const Record &record, OpenTransactions *open, const Takes &take) const
{
    const QByteArray data = unpack(record);
    const View view(data);
    int at = 0;
    for (quint32 i = 0; i < record.operations && view.has(at, kOperationHeader); ++i) {
        const quint32 id = view.u32(at);
        const quint32 length = view.u32(at + 4);
        const quint8 client = view.u8(at + 8);
        const quint8 flags = view.u8(at + 9);
        at += kOperationHeader;
        if (length > quint32(data.size() - at)) {
            open->remove(id);
            return;
        }
        if ((flags & kStart) != 0) {
            if (open->size() >= kMaxOpen)
                open->clear();
            Open begun;
            begun.transaction.lsn = record.lsn;
            begun.transaction.order = record.order;
            open->insert(id, begun);
        }
        const auto it = open->find(id);
        if (it != open->end() && length > 0 && client == kTransactionClient) {
            it->bytes += length;
            if (it->bytes > kMaxTransaction || it->transaction.regions.size() > kMaxRegions)
                open->erase(it);
            else if ((flags & kWasContinued) != 0 && !it->transaction.regions.isEmpty())
                it->transaction.regions.last().append(view.at(at), int(length));
            else
                it->transaction.regions.append(QByteArray(view.at(at), int(length)));
        }
        if ((flags & kCommit) != 0 && open->contains(id))
            take(open->take(id).transaction);
        at += int(length);
    }
}

void Log::readPending(quint64 tail, const Takes &take) const
{
    OpenTransactions open;
    qint64 at = placeOf(tail);
    quint64 last = tail;
    // At most once around the ring.
    for (qint64 passed = 0; isInside() && passed < m_size;) {
        Record record;
        const QByteArray header = readRing(at, kSector);
        if (!parseRecord(View(header), at % m_size, &record) || record.lsn < last)
            return;
        last = record.lsn;
        readOperations(record, &open, take);
        const qint64 length =
            record.headerSize + (qint64(record.length) + kSector - 1) / kSector * kSector;
        at = (at + length) % m_size;
        passed += length;
    }
}

bool Log::collect(std::vector<Record> *records, const GoesOn &goesOn) const
{
    constexpr qint64 kPiece = 4 * 1024 * 1024;
    for (qint64 at = 0; at < m_size; at += kPiece) {
        if (!goesOn(at))
            return false;
        const QByteArray piece = m_media.read(m_start + at, qMin(kPiece, m_size - at));
        for (int i = 0; i + kSector <= piece.size(); i += kSector) {
            Record record;
            if (parseRecord(View(piece).from(i), at + i, &record))
                records->push_back(record);
        }
    }
    std::sort(records->begin(), records->end(),
              [](const Record &a, const Record &b) { return a.lsn < b.lsn; });
    return true;
}

bool Log::readHistory(const Takes &take, const GoesOn &goesOn) const
{
    std::vector<Record> records;
    if (!isInside() || !collect(&records, goesOn))
        return !isInside();
    OpenTransactions open;
    // Whole records do not overlap, but what is left of older ones may claim the same bytes.
    qint64 left = 8 * m_size;
    for (const Record &record : records) {
        left -= record.headerSize + record.length;
        if (!goesOn(m_size) || left < 0)
            return left < 0;
        readOperations(record, &open, take);
    }
    return true;
}

} // namespace services::recoveryd::xfs
