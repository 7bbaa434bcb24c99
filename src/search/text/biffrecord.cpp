#include "search/text/biffrecord.h"

#include "search/text/littleendian.h"

namespace search::text {

namespace {

constexpr int headerBytes = 4;
constexpr quint16 continueType = 0x3C;

} // namespace

BiffRecord::BiffRecord(const QByteArray &stream, qint64 *at, bool continued)
    : m_stream(stream)
    , m_type(wordAt(stream, *at))
{
    do {
        const qint64 start = *at + headerBytes;
        const qint64 end = qMin<qint64>(stream.size(), start + wordAt(stream, *at + 2));
        m_parts.append({qMin<qint64>(start, stream.size()), end});
        *at = qMax(end, start);
    } while (continued && typeAt(stream, *at) == continueType);
    m_at = m_parts.constFirst().start;
}

quint16 BiffRecord::typeAt(const QByteArray &stream, qint64 at)
{
    return wordAt(stream, at);
}

bool BiffRecord::atEnd() const
{
    return m_part >= m_parts.size() ||
           (m_part == m_parts.size() - 1 && m_at >= m_parts.constLast().end);
}

int BiffRecord::left() const
{
    return m_part < m_parts.size() ? int(m_parts.at(m_part).end - m_at) : 0;
}

void BiffRecord::nextPart()
{
    ++m_part;
    m_at = m_part < m_parts.size() ? m_parts.at(m_part).start : m_stream.size();
}

/// A part that is read through gives way to the next.
void BiffRecord::settle()
{
    while (m_part + 1 < m_parts.size() && m_at >= m_parts.at(m_part).end)
        nextPart();
}

quint8 BiffRecord::byte()
{
    settle();
    if (left() < 1) {
        m_part = m_parts.size();
        return 0;
    }
    return static_cast<quint8>(m_stream.at(int(m_at++)));
}

quint16 BiffRecord::word()
{
    const quint16 low = byte();
    return quint16(low | byte() << 8);
}

quint32 BiffRecord::dword()
{
    const quint32 low = word();
    return low | quint32(word()) << 16;
}

double BiffRecord::number()
{
    settle();
    const double value = left() < 8 ? 0 : doubleAt(m_stream, m_at);
    skip(8);
    return value;
}

void BiffRecord::skip(qint64 bytes)
{
    while (bytes > 0 && !atEnd()) {
        settle();
        const qint64 step = qMin<qint64>(bytes, left());
        m_at += step;
        bytes -= step;
        if (step == 0)
            nextPart();
    }
}

QByteArray BiffRecord::bytes(int count)
{
    settle();
    const int there = qBound(0, count, left());
    const QByteArray result = m_stream.mid(int(m_at), there);
    m_at += there;
    return result;
}

QString BiffRecord::characters(int units, bool wide)
{
    QString text;
    while (units > 0 && m_part < m_parts.size()) {
        const int there = qMin(units, left() / (wide ? 2 : 1));
        text += wide ? utf16At(m_stream, m_at, there)
                     : QString::fromLatin1(m_stream.constData() + m_at, there);
        m_at += wide ? 2 * qint64(there) : there;
        units -= there;
        if (units > 0) {
            nextPart();
            wide = m_part < m_parts.size() && (byte() & 1) != 0;
        }
    }
    return text;
}

QString BiffRecord::unicode(int units)
{
    const quint8 flags = byte();
    const int runs = (flags & 8) != 0 ? word() : 0;
    const quint32 extra = (flags & 4) != 0 ? dword() : 0;
    const QString text = characters(units, (flags & 1) != 0);
    skip(4 * qint64(runs) + extra);
    return text;
}

} // namespace search::text
