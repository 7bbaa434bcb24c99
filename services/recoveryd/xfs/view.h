#pragma once

#include <QByteArray>
#include <QtEndian>

#include <cstring>

namespace services::recoveryd::xfs {

enum class Order : quint8 { Big, Little };

/// Fields of a structure that somebody else keeps. Outside of it every field reads as 0. On disk
/// all of XFS is big-endian; the items in its log are in the order of the machine that wrote them.
class View
{
public:
    View(const char *bytes, int size, Order order = Order::Big)
        : m_bytes(bytes)
        , m_size(size)
        , m_order(order)
    {}
    explicit View(const QByteArray &bytes, Order order = Order::Big)
        : View(bytes.constData(), bytes.size(), order)
    {}

    int size() const { return m_size; }
    const char *at(int place) const { return m_bytes + place; }
    bool has(int place, int length) const
    {
        return place >= 0 && length >= 0 && length <= m_size && place <= m_size - length;
    }
    quint8 u8(int place) const { return has(place, 1) ? quint8(m_bytes[place]) : quint8(0); }
    quint16 u16(int place) const { return number<quint16>(place); }
    quint32 u32(int place) const { return number<quint32>(place); }
    quint64 u64(int place) const { return number<quint64>(place); }
    QByteArray bytes(int place, int length) const
    {
        return has(place, length) ? QByteArray(m_bytes + place, length) : QByteArray();
    }
    /// From `place` on to the end.
    View from(int place) const
    {
        return has(place, 0) ? View(m_bytes + place, m_size - place, m_order)
                             : View(m_bytes, 0, m_order);
    }

private:
    template <typename T>
    T number(int place) const
    {
        if (!has(place, int(sizeof(T))))
            return T(0);
        return m_order == Order::Big ? qFromBigEndian<T>(m_bytes + place)
                                     : qFromLittleEndian<T>(m_bytes + place);
    }

    const char *m_bytes;
    int m_size;
    Order m_order;
};

} // namespace services::recoveryd::xfs
