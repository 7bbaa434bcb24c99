#include "recoveryd/ntfs/recordsweep.h"

#include <QtEndian>

#include <cstring>

namespace services::recoveryd::ntfs {

namespace {

constexpr qint64 kPiece = 4 * 1024 * 1024;
constexpr qint64 kSector = 512;
constexpr quint32 kMaxBlock = 64 * 1024;

/// Size of the INDX block at `at`, 0 if there is none. Its entries' header tells what is allocated.
int indexBlockSize(const char *at, int left)
{
    constexpr int kNodeHeader = 0x18;
    if (left < 512 || std::memcmp(at, "INDX", 4) != 0)
        return 0;
    const quint32 allocated = qFromLittleEndian<quint32>(at + kNodeHeader + 8);
    if (allocated > kMaxBlock)
        return 0;
    const int size = int((allocated + kNodeHeader + kSector - 1) / kSector * kSector);
    return size <= left ? size : 0;
}

} // namespace

bool RecordSweep::run(const Ranges &ranges, ScanObserver &observer, qint64 doneBefore)
{
    qint64 done = doneBefore;
    for (const Range &range : ranges) {
        for (qint64 at = range.start; at < range.end(); at += kPiece) {
            if (!observer.mayGoOn())
                return false;
            const qint64 end = qMin(at + kPiece, range.end());
            if (!sweepPiece(at, end))
                return false;
            done += end - at;
            observer.advanced(done);
        }
    }
    return true;
}

bool RecordSweep::follow(qint64 start, qint64 end, qint64 *reached, ScanObserver &observer)
{
    constexpr qint64 kPatience = 2 * kPiece;
    qint64 idle = 0;
    for (qint64 at = start; at < end && idle < kPatience; at += kPiece) {
        if (!observer.mayGoOn())
            return false;
        const int before = m_recordsFound;
        if (!sweepPiece(at, qMin(at + kPiece, end)))
            return false;
        *reached = qMin(at + kPiece, end);
        idle = m_recordsFound > before ? 0 : idle + kPiece;
    }
    return true;
}

bool RecordSweep::sweepPiece(qint64 start, qint64 end)
{
    const qint64 length = qMin(end - start + m_overlap, m_media.size() - start);
    if (length <= 0)
        return true;
    m_buffer.resize(int(length));
    m_media.read(start, m_buffer.data(), length);
    for (qint64 at = 0; at < end - start && at + kSector <= length;) {
        const int size = visit(m_buffer.constData() + at, int(length - at), start + at);
        if (m_isEnded)
            return false;
        at += qMax(qint64(size), kSector) / kSector * kSector;
    }
    return true;
}

int RecordSweep::visit(const char *at, int left, qint64 offset)
{
    if (at[0] == 'F') {
        Record record;
        if (!parseRecord(at, left, &record))
            return 0;
        ++m_recordsFound;
        m_isEnded = !m_handlers.record(offset, record);
        return record.bytes.size();
    }
    if (at[0] == 'I' && m_handlers.indexBlock) {
        const int size = indexBlockSize(at, left);
        if (size == 0)
            return 0;
        QByteArray block(at, size);
        if (undoFixups(block.data(), size) == 0)
            return 0;
        m_handlers.indexBlock(block);
        return size;
    }
    return 0;
}

} // namespace services::recoveryd::ntfs
