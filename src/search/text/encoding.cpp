#include "search/text/encoding.h"

#include "search/text/commoncharacters.h"
#include "search/text/textsink.h"

#include <QHash>
#include <QTextCodec>

#include <cstring>

namespace search::text {

namespace {

/// Enough to tell an encoding; more only costs time.
constexpr int sampleBytes = 4096;
/// So many whole characters for one bad byte leave a text UTF-8.
constexpr int charsPerBadByte = 3;

struct Utf8Count
{
    int sequences = 0;
    int longSequences = 0; ///< Of three bytes or more.
    int badBytes = 0;
    int controls = 0; ///< Control characters that no text holds.
};

uchar byteAt(const QByteArray &bytes, int i)
{
    return static_cast<uchar>(bytes.at(i));
}

bool isTextControl(uint c)
{
    return c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == 0x1B;
}

int sequenceLength(uchar lead)
{
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

Utf8Count countUtf8(const QByteArray &bytes, bool cut)
{
    Utf8Count count;
    for (int i = 0; i < bytes.size();) {
        const uchar lead = byteAt(bytes, i);
        if (lead < 0x80) {
            count.controls += lead < 0x20 && !isTextControl(lead) ? 1 : 0;
            ++i;
            continue;
        }
        const int length = sequenceLength(lead);
        int have = 1;
        while (have < length && i + have < bytes.size() && (byteAt(bytes, i + have) & 0xC0) == 0x80)
            ++have;
        if (length > 0 && have == length) {
            ++count.sequences;
            count.longSequences += length > 2 ? 1 : 0;
        } else if (!(cut && length > 0 && i + have == bytes.size())) {
            ++count.badBytes;
        }
        i += length > 0 ? have : 1;
    }
    return count;
}

QString decodeBy(const QByteArray &bytes, const QByteArray &name)
{
    QTextCodec *codec = QTextCodec::codecForName(name);
    if (!codec)
        return QString();
    // With a state the codec keeps an incomplete last character back.
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    return codec->toUnicode(bytes.constData(), bytes.size(), &state);
}

/// How well one unit fits running text; the worse, the rarer.
double weightOf(QChar c)
{
    const ushort unit = c.unicode();
    if (unit == 0xFFFD || (unit >= 0xE000 && unit <= 0xF8FF) ||
        (unit < 0x20 && !isTextControl(unit)))
        return -3;
    if (isCommonHan(c))
        return 1;
    if (isHan(c))
        return 0;
    if (unit >= 0xAC00 && unit <= 0xD7A3)
        return isCommonHangul(c) ? 0.9 : 0.2;
    if (unit >= 0x3041 && unit <= 0x30FE)
        return 0.8;
    if ((unit >= 0x3000 && unit <= 0x3020) || (unit >= 0xFF01 && unit <= 0xFF5E) ||
        (unit >= 0x2010 && unit <= 0x2026))
        return 0.5;
    return unit >= 0xFF61 && unit <= 0xFF9F ? -1 : -0.5;
}

/// A candidate with the lead bytes under which its everyday characters stand.
struct Candidate
{
    const char *codec;
    uchar firstLead;
    uchar lastLead;
    uchar firstTrail;
};

// In the order of preference.
const Candidate kCandidates[] = {
    {"GB18030", 0xB0, 0xD7, 0xA1},
    {"Big5", 0xA4, 0xC6, 0x40},
    {"Shift_JIS", 0x88, 0x97, 0x40},
    {"EUC-KR", 0xB0, 0xC8, 0xA1},
};

/// Han characters outside the common ones are everyday ones of an encoding by where they stand.
double placeWeight(const QByteArray &bytes, const Candidate &candidate)
{
    double weight = 0;
    for (int i = 0; i < bytes.size();) {
        const uchar lead = byteAt(bytes, i);
        if (lead < 0x80 || i + 1 >= bytes.size()) {
            ++i;
            continue;
        }
        const uchar trail = byteAt(bytes, i + 1);
        const bool everyday = lead >= candidate.firstLead && lead <= candidate.lastLead &&
                              trail >= candidate.firstTrail;
        // Punctuation, kana and the like lie between 0x81 and the first Han character.
        const bool sign = lead < candidate.firstLead && lead >= candidate.firstLead - 15 &&
                          trail >= candidate.firstTrail;
        weight += everyday ? 0.5 : sign ? 0.2 : -0.4;
        i += 2;
    }
    return weight;
}

/// Per character of two bytes, so that encodings of one byte a character gain nothing.
double scoreOf(const QByteArray &sample, const Candidate &candidate)
{
    int highBytes = 0;
    for (int i = 0; i < sample.size(); ++i)
        highBytes += byteAt(sample, i) >= 0x80 ? 1 : 0;
    double weight = placeWeight(sample, candidate);
    int characters = 0;
    const QString text = decodeBy(sample, candidate.codec);
    for (const QChar c : text) {
        if (c.unicode() >= 0x80 || (c.unicode() < 0x20 && !isTextControl(c.unicode()))) {
            weight += weightOf(c);
            ++characters;
        }
    }
    return weight / qMax(1, qMax(characters, highBytes / 2));
}

/// How well a sample reads as UTF-16.
struct WideReading
{
    QByteArray codec;
    double sum = 0; ///< Of the weights of all units.
    int odd = 0;    ///< Units that running text holds only here and there.
    int wrong = 0;  ///< Units that no text holds.
    int units = 0;

    bool isPlausible() const { return units > 0 && wrong == 0 && odd * 8 <= units; }
    double mean() const { return sum / qMax(1, units); }
};

WideReading readWide(const QByteArray &sample, bool bigEndian)
{
    WideReading reading;
    reading.codec = bigEndian ? "UTF-16BE" : "UTF-16LE";
    for (int i = 0; i + 1 < sample.size(); i += 2) {
        const uint first = byteAt(sample, i);
        const uint second = byteAt(sample, i + 1);
        const QChar c(bigEndian ? first << 8 | second : second << 8 | first);
        double weight = weightOf(c);
        if (c.unicode() < 0x80)
            weight = c.unicode() >= 0x20 || isTextControl(c.unicode()) ? 0.6 : -3;
        else if (isHan(c) || c.isSurrogate())
            weight = qMax(0.4, weight);
        reading.odd += weight < 0 ? 1 : 0;
        reading.wrong += weight < -2 ? 1 : 0;
        reading.sum += weight;
        ++reading.units;
    }
    return reading;
}

/// The better one of the two orders.
WideReading readWide(const QByteArray &sample)
{
    const WideReading little = readWide(sample, false);
    const WideReading big = readWide(sample, true);
    if (little.isPlausible() != big.isPlausible())
        return little.isPlausible() ? little : big;
    return little.sum >= big.sum ? little : big;
}

/// The weight of a sample in a legacy encoding, to be compared with that as UTF-16: a single ASCII
/// character among Han characters is a sign that the bytes are no such text.
double legacySum(const QByteArray &sample, const Candidate &candidate)
{
    const QString text = decodeBy(sample, candidate.codec);
    double sum = qMin(0.0, placeWeight(sample, candidate));
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        const bool ascii = c.unicode() < 0x80;
        const bool alone = ascii && i > 0 && text.at(i - 1).unicode() >= 0x80 &&
                           (i + 1 >= text.size() || text.at(i + 1).unicode() >= 0x80);
        if (ascii)
            sum += alone ? -0.5 : 0;
        else
            sum += isHan(c) && !isCommonHan(c) ? 0.3 : weightOf(c);
    }
    return sum;
}

/// Japanese and Chinese kana stand at the same places, but only Japanese text is full of them.
bool isJapaneseUnix(const QByteArray &sample)
{
    const QString text = decodeBy(sample, "EUC-JP");
    int kana = 0;
    int wide = 0;
    for (const QChar c : text) {
        if (c.unicode() == 0xFFFD)
            return false;
        kana += c.unicode() >= 0x3041 && c.unicode() <= 0x30FE ? 1 : 0;
        wide += c.unicode() >= 0x80 ? 1 : 0;
    }
    return kana > 0 && kana * 4 >= wide;
}

QByteArray markedEncoding(const QByteArray &bytes)
{
    if (bytes.startsWith("\xEF\xBB\xBF"))
        return "UTF-8";
    if (bytes.startsWith(QByteArray("\xFF\xFE\0\0", 4)))
        return "UTF-32LE";
    if (bytes.startsWith(QByteArray("\0\0\xFE\xFF", 4)))
        return "UTF-32BE";
    if (bytes.startsWith("\xFF\xFE"))
        return "UTF-16LE";
    return bytes.startsWith("\xFE\xFF") ? "UTF-16BE" : QByteArray();
}

bool isUtf8(const Utf8Count &count, const QByteArray &sample)
{
    if (count.badBytes * charsPerBadByte > count.sequences)
        return false;
    // Some pairs of GBK characters are valid UTF-8 of two bytes each: a note of only those is
    // Chinese if these are everyday characters.
    const bool pairsOnly = count.sequences > 1 && count.longSequences == 0 &&
                           count.sequences * 2 + count.badBytes == sample.trimmed().size();
    return !pairsOnly || scoreOf(sample, kCandidates[0]) < 1.0;
}

} // namespace

QByteArray detectEncoding(const QByteArray &bytes, bool cut)
{
    const QByteArray marked = markedEncoding(bytes);
    if (!marked.isEmpty() || bytes.isEmpty())
        return marked;
    const QByteArray sample = bytes.left(sampleBytes);
    if (sample.contains("\x1B$B") || sample.contains("\x1B$@"))
        return "ISO-2022-JP";
    const Utf8Count count = countUtf8(bytes, cut);
    const bool even = sample.size() % 2 == 0;
    const WideReading wide = even ? readWide(sample) : WideReading();
    if (count.controls > 0 && wide.mean() >= 0.3)
        return wide.codec;
    if (bytes.contains('\0'))
        return QByteArray();
    if (isUtf8(count, sample))
        return "UTF-8";
    const Candidate *best = nullptr;
    double bestScore = 0;
    for (const Candidate &candidate : kCandidates) {
        const double score = scoreOf(sample, candidate);
        if (!best || score > bestScore + 1e-9) {
            best = &candidate;
            bestScore = score;
        }
    }
    if (wide.isPlausible() && wide.sum > legacySum(sample, *best))
        return wide.codec;
    if (best == &kCandidates[0] && isJapaneseUnix(sample))
        return "EUC-JP";
    return bestScore < -0.4 ? QByteArray("windows-1252") : QByteArray(best->codec);
}

QString decodeText(const QByteArray &bytes, bool cut)
{
    const QByteArray encoding = detectEncoding(bytes, cut);
    if (encoding.isEmpty())
        return QString();
    QString text = decodeBy(bytes, encoding);
    if (text.startsWith(QChar(0xFEFF)))
        text.remove(0, 1);
    return text;
}

QString decodeDeclared(const QByteArray &bytes, const QByteArray &encoding)
{
    static const QHash<QByteArray, QByteArray> supersets{
        {"gb2312", "GB18030"}, {"gbk", "GB18030"},
        {"x-gbk", "GB18030"},  {"gb_2312-80", "GB18030"},
        {"cp936", "GB18030"},  {"ks_c_5601-1987", "EUC-KR"},
        {"euc-kr", "EUC-KR"},  {"iso-8859-1", "windows-1252"},
        {"us-ascii", "UTF-8"}, {"x-sjis", "Shift_JIS"}};
    const QByteArray name = encoding.trimmed().toLower();
    const bool wide = name.startsWith("utf-16") || name == "unicode";
    if (!markedEncoding(bytes).isEmpty() || name.isEmpty() || wide)
        return decodeText(bytes);
    const QString text = decodeBy(bytes, supersets.value(name, name));
    if (!text.isEmpty() && text.count(QChar(0xFFFD)) * charsPerBadByte <= text.size() / 2)
        return text;
    return decodeText(bytes);
}

QByteArray codePageName(int codePage)
{
    switch (codePage) {
    case 932:
        return "Shift_JIS";
    case 936:
    case 54936:
        return "GB18030";
    case 949:
        return "EUC-KR";
    case 950:
        return "Big5";
    case 65001:
        return "UTF-8";
    default:
        break;
    }
    for (const char *const prefix : {"windows-", "IBM", "CP"}) {
        const QByteArray name = prefix + QByteArray::number(codePage);
        if (QTextCodec::codecForName(name))
            return name;
    }
    return QByteArray();
}

} // namespace search::text
