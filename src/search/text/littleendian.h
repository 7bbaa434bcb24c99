#pragma once

#include <QByteArray>
#include <QString>
#include <QtEndian>

#include <cstring>

namespace search::text {

/// Numbers of a binary document at a byte offset; 0 where they would end beyond the bytes.
inline quint16 wordAt(const QByteArray &bytes, qint64 at)
{
    return at >= 0 && at + 2 <= bytes.size() ? qFromLittleEndian<quint16>(bytes.constData() + at)
                                             : quint16(0);
}

inline quint32 dwordAt(const QByteArray &bytes, qint64 at)
{
    return at >= 0 && at + 4 <= bytes.size() ? qFromLittleEndian<quint32>(bytes.constData() + at)
                                             : quint32(0);
}

inline double doubleAt(const QByteArray &bytes, qint64 at)
{
    if (at < 0 || at + 8 > bytes.size())
        return 0;
    const quint64 bits = qFromLittleEndian<quint64>(bytes.constData() + at);
    double value = 0;
    static_assert(sizeof(value) == sizeof(bits), "numbers of eight bytes");
    std::memcpy(&value, &bits, sizeof(value));
    return value;
}

/// UTF-16 from `at` on, as many of `units` as there are.
inline QString utf16At(const QByteArray &bytes, qint64 at, qint64 units)
{
    const qint64 there = qBound<qint64>(0, (bytes.size() - at) / 2, qMax<qint64>(0, units));
    QString text;
    if (at < 0 || there == 0)
        return text;
    text.resize(int(there));
    for (int i = 0; i < text.size(); ++i)
        text[i] = QChar(wordAt(bytes, at + 2 * qint64(i)));
    return text;
}

} // namespace search::text
