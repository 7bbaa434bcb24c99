#include "search/grams/textgrams.h"

#include "search/query/folding.h"

#include <QVector>

#include <algorithm>

namespace search::grams {
namespace {

/// Distinct grams are sorted out whenever so many have gathered; bounds the memory of long texts.
constexpr int gatheredGrams = 1 << 20;
/// More grams of one word tell little that the first ones do not.
constexpr int mostTerms = 16;

bool isAsciiWord(uint c)
{
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z');
}

bool isWide(uint c)
{
    return c >= 0x80 && (QChar::isLetterOrNumber(c) || QChar::isMark(c));
}

bool isHan(QChar c)
{
    return c >= QChar(0x3400) && c <= QChar(0x9FFF);
}

bool partsHanFromLatin(const QString &text, int i)
{
    if (text.at(i) != QLatin1Char(' ') || i == 0 || i + 1 == text.size())
        return false;
    const QChar before = text.at(i - 1);
    const QChar after = text.at(i + 1);
    return (isHan(before) && isAsciiWord(after.unicode())) ||
           (isAsciiWord(before.unicode()) && isHan(after));
}

QString withoutBlanks(const QString &text)
{
    QString result;
    result.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        if (!partsHanFromLatin(text, i))
            result += text.at(i);
    }
    return result;
}

/// One to three characters of 21 bits each.
quint64 packed(uint a, uint b = 0, uint c = 0)
{
    return (quint64(a) << 42) | (quint64(b) << 21) | c;
}

void appendGram(quint64 gram, QString *text)
{
    for (const int shift : {42, 21, 0}) {
        const uint c = uint(gram >> shift) & 0x1FFFFF;
        if (c >= 0x10000) {
            *text += QChar(QChar::highSurrogate(c));
            *text += QChar(QChar::lowSurrogate(c));
        } else if (c != 0) {
            *text += QChar(ushort(c));
        }
    }
}

void keepDistinct(QVector<quint64> *grams)
{
    std::sort(grams->begin(), grams->end());
    grams->erase(std::unique(grams->begin(), grams->end()), grams->end());
}

/// Hands over all grams of comparable text in order. `shortGram` gets the ASCII rows of two
/// characters, and the last two of longer ones.
template <typename Gram, typename Short>
void scanGrams(const QVector<uint> &text, Gram gram, Short shortGram)
{
    const int size = text.size();
    int row = 0; // ASCII characters that end here
    for (int i = 0; i < size; ++i) {
        const uint c = text.at(i);
        const uint next = i + 1 < size ? text.at(i + 1) : 0;
        if (isWide(c)) {
            row = 0;
            gram(packed(c));
            if (isWide(next) || isAsciiWord(next))
                gram(packed(c, next));
        } else if (isAsciiWord(c)) {
            ++row;
            if (row >= 3)
                gram(packed(text.at(i - 2), text.at(i - 1), c));
            if (row >= 2 && !isAsciiWord(next))
                shortGram(packed(text.at(i - 1), c), row);
            if (isWide(next))
                gram(packed(c, next));
        } else {
            row = 0;
        }
    }
}

} // namespace

QString comparable(const QString &text)
{
    return withoutBlanks(query::folded(text));
}

QString withoutBorderBlanks(const QString &text)
{
    return withoutBlanks(query::asciiLower(text));
}

QString gramsOf(const QString &text)
{
    QVector<quint64> grams;
    int limit = gatheredGrams;
    const auto add = [&](quint64 gram) {
        grams.append(gram);
        if (grams.size() < limit)
            return;
        keepDistinct(&grams);
        limit = qMax(gatheredGrams, 2 * grams.size());
    };
    scanGrams(comparable(text).toUcs4(), add, [&add](quint64 gram, int) { add(gram); });
    keepDistinct(&grams);
    QString result;
    result.reserve(grams.size() * 4);
    for (const quint64 gram : qAsConst(grams)) {
        appendGram(gram, &result);
        result += QLatin1Char(' ');
    }
    return result;
}

QString gramExpression(const QStringList &words)
{
    QStringList terms;
    for (const QString &word : words) {
        QStringList ofWord;
        const auto quoted = [](quint64 gram) {
            QString text;
            appendGram(gram, &text);
            return QString(QLatin1Char('"') + text + QLatin1Char('"'));
        };
        const QVector<uint> text = comparable(word).toUcs4();
        scanGrams(
            text, [&](quint64 gram) { ofWord.append(quoted(gram)); },
            // In the text the row may go on, so a pair is the beginning of a gram there.
            [&](quint64 gram, int row) {
                if (row == 2)
                    ofWord.append(quoted(gram) + QLatin1Char('*'));
            });
        ofWord.removeDuplicates();
        const int step = (ofWord.size() + mostTerms - 1) / mostTerms;
        for (int i = 0; i < ofWord.size(); i += qMax(1, step))
            terms.append(ofWord.at(i));
    }
    terms.removeDuplicates();
    return terms.join(QLatin1String(" AND "));
}

} // namespace search::grams
