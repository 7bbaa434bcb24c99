#pragma once

#include <QByteArray>

#include <array>

namespace search::names {

/// How often each byte occurs in the texts to be searched.
using ByteCounts = std::array<quint32, 256>;

/// Finds a sequence of bytes in many texts: compares its two rarest bytes at sixteen places at
/// once, and the rest where both are there. May be used by several threads.
class ByteFinder
{
public:
    /// An empty `needle` is found everywhere.
    ByteFinder(const QByteArray &needle, const ByteCounts &counts);

    /// The first place in [from, end); `end` if there is none.
    const char *find(const char *from, const char *end) const;
    bool isIn(const char *from, const char *end) const;

private:
    QByteArray m_needle;
    int m_rarest = 0;
    int m_second = 0;
};

} // namespace search::names
