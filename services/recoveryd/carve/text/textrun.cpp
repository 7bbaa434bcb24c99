#include "recoveryd/carve/text/textrun.h"

#include "recoveryd/carve/text/textkind.h"

#include <algorithm>
#include <cstring>

namespace services::recoveryd {

namespace {

constexpr qint64 kLeastBytes = 24;
constexpr qint64 kLeastWithoutEnd = 512;
constexpr qint64 kSample = 4096;

bool isWide(TextEncoding encoding)
{
    return encoding == TextEncoding::Utf16Le || encoding == TextEncoding::Utf16Be;
}

QByteArray sampleOf(WindowReader &reader, qint64 at, qint64 length)
{
    const uchar *const bytes = reader.at(at, length);
    return bytes ? QByteArray(reinterpret_cast<const char *>(bytes), int(length)) : QByteArray();
}

} // namespace

bool TextRun::mayBegin(const uchar *sector)
{
    if ((sector[0] == 0xFF && sector[1] == 0xFE) || (sector[0] == 0xFE && sector[1] == 0xFF))
        return true;
    constexpr int kLooked = 64;
    int i = 0;
    // Eight bytes at a time, while none of them is below a space.
    for (; i < kLooked; i += 8) {
        quint64 word = 0;
        std::memcpy(&word, sector + i, sizeof(word));
        constexpr quint64 kOnes = 0x0101010101010101u;
        if (((word - kOnes * 0x20) & ~word & (kOnes * 0x80)) != 0)
            break;
    }
    for (; i < kLooked; ++i)
        if (sector[i] < 0x20 && sector[i] != '\t' && sector[i] != '\n' && sector[i] != '\r')
            return sector[i] == 0 && i >= kLeastBytes; // a short text, and zeros
    return true;
}

TextRun::Step TextRun::take(qint64 at, const uchar *sector, qint64 length)
{
    qint64 used = length;
    while (used > 0 && sector[used - 1] == 0)
        --used;
    if (used == 0) {
        m_hasEnd = true;
        return Step::NoText;
    }
    // A zero may be the upper half of the last character.
    const qint64 wideUsed = qMin(length, used + (used & 1));
    const bool isOpenRun = isOpen();
    if (isOpenRun && !fits(m_encoding, sector, isWide(m_encoding) ? wideUsed : used))
        return Step::NoText;
    TextEncoding encoding = encodingOf(sector, used);
    if (encoding == TextEncoding::None)
        encoding = encodingOf(sector, wideUsed);
    if (!isOpenRun) {
        if (encoding == TextEncoding::None)
            return Step::NoText;
        m_start = at;
        m_encoding = encoding;
        m_hasEnd = false;
    } else if (m_encoding == TextEncoding::Ascii) {
        m_encoding = encoding;
    }
    const qint64 taken = isWide(m_encoding) ? wideUsed : used;
    m_end = at + taken;
    m_hasEnd = taken < length;
    return m_hasEnd ? Step::Last : Step::More;
}

bool TextRun::describe(WindowReader &reader, CarvedFile *file) const
{
    const qint64 length = m_end - m_start;
    if (length < (m_hasEnd ? kLeastBytes : kLeastWithoutEnd))
        return false;
    const qint64 sample = qMin(length, kSample);
    const QString head = decodedText(sampleOf(reader, m_start, sample), m_encoding);
    const QString tail = decodedText(sampleOf(reader, m_end - sample, sample), m_encoding);
    file->setKind(suffixOfText(head, tail));
    file->inside = Inside::Noise;
    file->setEnd(length, m_hasEnd ? Evidence::End : Evidence::Structure);
    return true;
}

} // namespace services::recoveryd
