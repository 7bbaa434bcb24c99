#include "recoveryd/carve/text/textencoding.h"

#include <array>

namespace services::recoveryd {

namespace {

// Text of other scripts than those that are counted as usual, before it looks like chance.
constexpr double kUnusual = 0.15;
constexpr double kGbUnusual = 0.4;

constexpr bool isControl(uchar c)
{
    return (c < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\f' && c != 0x1B) || c == 0x7F;
}

/// What a byte is within 8-bit text.
enum ByteClass : quint8 { Plain, High, Control };

std::array<quint8, 256> makeClasses()
{
    std::array<quint8, 256> classes = {};
    for (int c = 0; c < 256; ++c)
        classes[size_t(c)] = isControl(uchar(c)) ? Control : c >= 0x80 ? High : Plain;
    return classes;
}

const std::array<quint8, 256> &classes()
{
    static const std::array<quint8, 256> table = makeClasses();
    return table;
}

struct EightBit
{
    bool hasControl = false;
    bool hasHigh = false;
};

EightBit eightBitOf(const uchar *bytes, qint64 length)
{
    const std::array<quint8, 256> &table = classes();
    EightBit seen;
    for (qint64 i = 0; i < length && !seen.hasControl; ++i) {
        const quint8 kind = table[bytes[i]];
        seen.hasHigh = seen.hasHigh || kind == High;
        seen.hasControl = kind == Control;
    }
    return seen;
}

/// Length of the UTF-8 character at `bytes`; 0 if there is none, -1 if it is cut off by the end.
int utf8Length(const uchar *bytes, qint64 left)
{
    const uchar c = bytes[0];
    const int length = c < 0x80 ? 1 : c < 0xC2 ? 0 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : c < 0xF5 ? 4 : 0;
    for (int i = 1; i < length; ++i) {
        if (i >= left)
            return -1;
        if ((bytes[i] & 0xC0) != 0x80)
            return 0;
    }
    if (length == 3 && ((c == 0xE0 && bytes[1] < 0xA0) || (c == 0xED && bytes[1] >= 0xA0)))
        return 0;
    return length;
}

bool isUtf8(const uchar *bytes, qint64 length)
{
    qint64 i = 0;
    while (i < length && i < 3 && (bytes[i] & 0xC0) == 0x80) // of a character that began before
        ++i;
    while (i < length) {
        const int step = utf8Length(bytes + i, length - i);
        if (step < 0)
            return true;
        if (step == 0)
            return false;
        i += step;
    }
    return true;
}

/// From `i` on; a stretch may begin in the middle of a character, so both phases are tried.
bool isGb18030From(const uchar *bytes, qint64 length, qint64 i)
{
    qint64 characters = 0;
    qint64 usual = 0; // GB 2312: what Chinese text mostly consists of
    while (i < length) {
        const uchar lead = bytes[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        if (lead == 0x80 || lead == 0xFF)
            return false;
        if (i + 1 >= length)
            break;
        const uchar trail = bytes[i + 1];
        const bool isFour = trail >= 0x30 && trail <= 0x39;
        if (!isFour && (trail < 0x40 || trail == 0x7F || trail == 0xFF))
            return false;
        if (isFour && i + 3 < length &&
            (bytes[i + 2] < 0x81 || bytes[i + 2] == 0xFF || bytes[i + 3] < 0x30 ||
             bytes[i + 3] > 0x39))
            return false;
        ++characters;
        usual += lead >= 0xA1 && lead <= 0xF7 && trail >= 0xA1 ? 1 : 0;
        i += isFour ? 4 : 2;
    }
    return characters > 0 && double(characters - usual) <= kGbUnusual * double(characters);
}

bool isGb18030(const uchar *bytes, qint64 length)
{
    return isGb18030From(bytes, length, 0) || isGb18030From(bytes, length, 1);
}

bool isUsualUnit(quint16 unit)
{
    return (unit >= 0x20 && unit < 0x250) || unit == '\t' || unit == '\n' || unit == '\r' ||
           (unit >= 0x2000 && unit < 0x2070) || (unit >= 0x3000 && unit < 0x3100) ||
           (unit >= 0x4E00 && unit < 0xA000) || (unit >= 0xFF00 && unit < 0xFFF0);
}

bool isUtf16(const uchar *bytes, qint64 length, int low)
{
    qint64 unusual = 0;
    qint64 ascii = 0;
    const qint64 units = length / 2;
    for (qint64 i = 0; i < units; ++i) {
        const quint16 unit = quint16(bytes[2 * i + low] | bytes[2 * i + 1 - low] << 8);
        if (unit == 0 || unit == 0xFFFF || (unit < 0x20 && !isUsualUnit(unit)))
            return false;
        const bool isMark = i == 0 && unit == 0xFEFF;
        unusual += isUsualUnit(unit) || isMark ? 0 : 1;
        if (double(unusual) > kUnusual * double(units))
            return false;
        ascii +=
            unit < 0x80 || (unit >= 0x3000 && unit < 0x3010) || (unit >= 0xFF00 && unit < 0xFF20)
                ? 1
                : 0;
    }
    // Chinese text without any space, digit or punctuation is not told from chance.
    return units > 0 && ascii * 64 >= units;
}

} // namespace

TextEncoding encodingOf(const uchar *bytes, qint64 length)
{
    const EightBit seen = eightBitOf(bytes, length);
    if (length > 0 && !seen.hasControl && !seen.hasHigh)
        return TextEncoding::Ascii;
    if (!seen.hasControl && isUtf8(bytes, length))
        return length > 0 ? TextEncoding::Utf8 : TextEncoding::None;
    if (!seen.hasControl && isGb18030(bytes, length))
        return TextEncoding::Gb18030;
    if (isUtf16(bytes, length, 0))
        return TextEncoding::Utf16Le;
    return isUtf16(bytes, length, 1) ? TextEncoding::Utf16Be : TextEncoding::None;
}

bool fits(TextEncoding encoding, const uchar *bytes, qint64 length)
{
    if (encoding == TextEncoding::Utf16Le || encoding == TextEncoding::Utf16Be)
        return isUtf16(bytes, length, encoding == TextEncoding::Utf16Le ? 0 : 1);
    const EightBit seen = eightBitOf(bytes, length);
    if (encoding == TextEncoding::None || seen.hasControl)
        return false;
    return !seen.hasHigh || (encoding != TextEncoding::Gb18030 && isUtf8(bytes, length)) ||
           (encoding != TextEncoding::Utf8 && isGb18030(bytes, length));
}

double controlShare(const uchar *bytes, qint64 length)
{
    const std::array<quint8, 256> &table = classes();
    qint64 controls = 0;
    for (qint64 i = 0; i < length; ++i)
        controls += table[bytes[i]] == Control ? 1 : 0;
    return length > 0 ? double(controls) / double(length) : 0.0;
}

} // namespace services::recoveryd
