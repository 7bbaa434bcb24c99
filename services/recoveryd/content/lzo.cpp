#include "recoveryd/content/lzo.h"

#include <QtEndian>

#include <cstring>

namespace services::recoveryd {

namespace {

/// One stream while it is read. After the first step that goes wrong nothing more is done.
class Lzo1x
{
public:
    Lzo1x(const char *from, qint64 length, char *to, qint64 capacity)
        : m_from(reinterpret_cast<const quint8 *>(from))
        , m_fromEnd(m_from + length)
        , m_begin(to)
        , m_to(to)
        , m_toEnd(to + capacity)
    {}

    qint64 run()
    {
        readStart();
        while (!m_isBad && !m_isDone)
            readInstruction();
        return m_isBad ? -1 : m_to - m_begin;
    }

private:
    quint8 next()
    {
        if (m_from < m_fromEnd)
            return *m_from++;
        m_isBad = true;
        return 0;
    }
    quint16 nextWord()
    {
        const quint16 low = next();
        return quint16(low | next() << 8);
    }
    /// A count whose bits in the instruction are all zero goes on: each zero byte counts 255.
    qint64 longCount(qint64 base)
    {
        qint64 count = base;
        quint8 byte = 0;
        while ((byte = next()) == 0 && !m_isBad)
            count += 255;
        return count + byte;
    }

    void copyLiterals(qint64 count)
    {
        if (m_isBad || count > m_fromEnd - m_from || count > m_toEnd - m_to) {
            m_isBad = true;
            return;
        }
        std::memcpy(m_to, m_from, size_t(count));
        m_from += count;
        m_to += count;
    }
    void copyMatch(qint64 distance, qint64 count)
    {
        if (m_isBad || distance > m_to - m_begin || count > m_toEnd - m_to) {
            m_isBad = true;
            return;
        }
        // Source and target may overlap: a run repeats itself.
        for (; count > 0; --count, ++m_to)
            *m_to = *(m_to - distance);
    }
    /// The match of an instruction, then the few literals that its last two bits speak of.
    void finish(qint64 distance, qint64 count, int literals)
    {
        copyMatch(distance, count);
        copyLiterals(literals);
        m_literals = literals;
    }

    void readStart()
    {
        constexpr quint8 kFirstLiteral = 18;
        if (m_from == m_fromEnd || *m_from < kFirstLiteral)
            return;
        const int count = next() - (kFirstLiteral - 1);
        copyLiterals(count);
        m_literals = count < 4 ? count : kManyLiterals;
    }

    void readInstruction()
    {
        const quint8 code = next();
        if (code >= 64)
            readShortMatch(code);
        else if (code >= 32)
            readMatch(code);
        else if (code >= 16)
            readFarMatch(code);
        else
            readByState(code);
    }

    void readShortMatch(quint8 code)
    {
        const qint64 distance = (qint64(next()) << 3) + ((code >> 2) & 7) + 1;
        finish(distance, (code >> 5) + 1, code & 3);
    }
    void readMatch(quint8 code)
    {
        const qint64 count = (code & 31) != 0 ? (code & 31) + 2 : longCount(31 + 2);
        const quint16 word = nextWord();
        finish((word >> 2) + 1, count, word & 3);
    }
    void readFarMatch(quint8 code)
    {
        constexpr qint64 kFar = 16384;
        const qint64 count = (code & 7) != 0 ? (code & 7) + 2 : longCount(7 + 2);
        const quint16 word = nextWord();
        const qint64 distance = kFar + (qint64(code & 8) << 11) + (word >> 2);
        if (distance == kFar) {
            m_isDone = true;
            return;
        }
        finish(distance, count, word & 3);
    }
    /// What the lowest codes mean depends on how many literals came before.
    void readByState(quint8 code)
    {
        if (m_literals == 0) {
            copyLiterals(code != 0 ? code + 3 : longCount(15 + 3));
            m_literals = kManyLiterals;
            return;
        }
        const qint64 distance = (qint64(next()) << 2) + (code >> 2) + 1;
        if (m_literals == kManyLiterals)
            finish(distance + 2048, 3, code & 3);
        else
            finish(distance, 2, code & 3);
    }

    static constexpr int kManyLiterals = 4; ///< Four or more.

    const quint8 *m_from;
    const quint8 *m_fromEnd;
    char *m_begin;
    char *m_to;
    char *m_toEnd;
    int m_literals = 0; ///< Copied by the last instruction.
    bool m_isBad = false;
    bool m_isDone = false;
};

bool unpackSegments(const QByteArray &stored, qint64 length, qint64 sector, QByteArray *plain)
{
    constexpr qint64 kHeader = 4;
    if (stored.size() < 2 * kHeader)
        return false;
    const qint64 end = qFromLittleEndian<quint32>(stored.constData());
    if (end > stored.size())
        return false;
    plain->fill('\0', int(length));
    qint64 got = 0;
    for (qint64 at = kHeader; at + kHeader <= end && got < length;) {
        const qint64 size = qFromLittleEndian<quint32>(stored.constData() + at);
        at += kHeader;
        if (size == 0 || size > end - at)
            return false;
        const qint64 room = qMin(sector, length - got);
        // The last segment may give more than is wanted of it.
        QByteArray part(int(sector), Qt::Uninitialized);
        const qint64 given = decompressLzo1x(stored.constData() + at, size, part.data(), sector);
        if (given < 0)
            return false;
        std::memcpy(plain->data() + got, part.constData(), size_t(qMin(given, room)));
        at += size;
        const bool isLast = at + kHeader > end;
        if (given < room && !isLast)
            return false;
        got += qMin(given, room);
        const qint64 left = sector - at % sector;
        if (left < kHeader)
            at += left;
    }
    return got > 0 || length == 0;
}

} // namespace

qint64 decompressLzo1x(const char *from, qint64 length, char *to, qint64 capacity)
{
    return Lzo1x(from, length, to, capacity).run();
}

bool decompressLzo(const QByteArray &stored, qint64 length, QByteArray *plain)
{
    // The sector size stands in the superblock only. Nearly all volumes have 4 KiB; what was made
    // with larger pages does not come out right with a smaller one.
    for (qint64 sector : {4096, 65536, 16384, 8192})
        if (unpackSegments(stored, length, sector, plain))
            return true;
    return false;
}

} // namespace services::recoveryd
