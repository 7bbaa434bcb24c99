#pragma once

#include "recoveryd/scan/grading.h"

namespace services::recoveryd {

/// Packs integers and texts tightly: seven bits a byte, the eighth says that more follow.
class PackedWriter
{
public:
    void byte(quint8 value) { m_bytes.append(char(value)); }
    void number(quint64 value);
    void signedNumber(qint64 value);
    void text(const QByteArray &value);
    const QByteArray &bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

/// Reads the same back. Past the end, or after anything wrong, everything reads as 0 and isGood()
/// is false.
class PackedReader
{
public:
    explicit PackedReader(const QByteArray &bytes)
        : m_bytes(bytes)
    {}

    quint8 byte();
    quint64 number();
    qint64 signedNumber();
    QByteArray text();
    /// A count of things that take at least a byte each.
    int count();
    bool isGood() const { return m_isGood; }
    /// For values that cannot be: what was read so far is not to be trusted.
    void fail() { m_isGood = false; }

private:
    QByteArray m_bytes;
    int m_at = 0;
    bool m_isGood = true;
};

/// A finding without its folder, which is stored once for all files in it.
void encode(const Finding &finding, PackedWriter *to);
[[nodiscard]] bool decode(PackedReader &from, Finding *finding);
void encode(const Damage &damage, PackedWriter *to);
[[nodiscard]] bool decode(PackedReader &from, Damage *damage);

} // namespace services::recoveryd
