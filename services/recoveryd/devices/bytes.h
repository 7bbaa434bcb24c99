#pragma once

#include <QByteArray>
#include <QtEndian>

#include <cstring>

namespace services {
namespace recoveryd {

inline bool isPowerOfTwo(quint32 value)
{
    return value != 0 && (value & (value - 1)) == 0;
}

/// Fields of on-disk structures. Outside the bytes given every field reads as 0.
class Fields
{
public:
    explicit Fields(const QByteArray &bytes)
        : m_bytes(bytes)
    {}

    quint8 u8(int at) const { return has(at, 1) ? quint8(m_bytes.at(at)) : quint8(0); }
    quint16 le16(int at) const { return le<quint16>(at); }
    quint32 le32(int at) const { return le<quint32>(at); }
    quint64 le64(int at) const { return le<quint64>(at); }
    quint64 be64(int at) const { return be<quint64>(at); }
    quint32 be32(int at) const { return be<quint32>(at); }
    bool isAt(int at, const char *text, int length) const
    {
        return has(at, length) && std::memcmp(m_bytes.constData() + at, text, size_t(length)) == 0;
    }

private:
    bool has(int at, int length) const { return at >= 0 && at <= m_bytes.size() - length; }
    template <typename T>
    T le(int at) const
    {
        return has(at, int(sizeof(T))) ? qFromLittleEndian<T>(m_bytes.constData() + at) : T(0);
    }
    template <typename T>
    T be(int at) const
    {
        return has(at, int(sizeof(T))) ? qFromBigEndian<T>(m_bytes.constData() + at) : T(0);
    }

    QByteArray m_bytes;
};

} // namespace recoveryd
} // namespace services
