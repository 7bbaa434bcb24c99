#pragma once

#include "recoveryd/carve/windowreader.h"

#include <QtEndian>

#include <cstring>

namespace services::recoveryd {

/// Fields of a file that may begin at some place of a run of bytes. Offsets are from its start;
/// outside the run every field reads as 0.
class Peek
{
public:
    Peek(WindowReader &reader, qint64 start)
        : m_reader(reader)
        , m_start(start)
    {}

    /// Bytes up to the end of the run: the most that the file can have.
    qint64 room() const { return m_reader.end() - m_start; }
    bool has(qint64 at, qint64 length) const
    {
        return at >= 0 && length >= 0 && length <= room() && at <= room() - length;
    }
    /// Null outside the run, and for more than WindowReader::kMaxPiece bytes.
    const uchar *bytes(qint64 at, qint64 length) const
    {
        return at < 0 || at > room() ? nullptr : m_reader.at(m_start + at, length);
    }
    bool is(qint64 at, const char *text, int length) const
    {
        const uchar *const held = bytes(at, length);
        return held && std::memcmp(held, text, size_t(length)) == 0;
    }
    template <int N>
    bool is(qint64 at, const char (&text)[N]) const
    {
        return is(at, text, N - 1);
    }
    quint8 u8(qint64 at) const
    {
        const uchar *const held = bytes(at, 1);
        return held ? *held : quint8(0);
    }
    quint16 le16(qint64 at) const { return little<quint16>(at); }
    quint32 le32(qint64 at) const { return little<quint32>(at); }
    quint64 le64(qint64 at) const { return little<quint64>(at); }
    quint16 be16(qint64 at) const { return big<quint16>(at); }
    quint32 be32(qint64 at) const { return big<quint32>(at); }
    quint64 be64(qint64 at) const { return big<quint64>(at); }
    quint32 be24(qint64 at) const { return be32(at - 1) & 0xFFFFFF; }
    bool isZero(qint64 at, qint64 length) const
    {
        const uchar *const held = bytes(at, length);
        for (qint64 i = 0; held && i < length; ++i)
            if (held[i] != 0)
                return false;
        return held != nullptr;
    }
    /// As WindowReader::find(), from the file's start.
    qint64 find(qint64 from, qint64 to, const char *token, int length) const
    {
        const qint64 hit = m_reader.find(m_start + from, m_start + qMin(to, room()), token, length);
        return hit < 0 ? -1 : hit - m_start;
    }
    WindowReader &reader() const { return m_reader; }
    qint64 start() const { return m_start; }

private:
    template <typename T>
    T little(qint64 at) const
    {
        const uchar *const held = bytes(at, sizeof(T));
        return held ? qFromLittleEndian<T>(held) : T(0);
    }
    template <typename T>
    T big(qint64 at) const
    {
        const uchar *const held = bytes(at, sizeof(T));
        return held ? qFromBigEndian<T>(held) : T(0);
    }

    WindowReader &m_reader;
    qint64 m_start;
};

} // namespace services::recoveryd
