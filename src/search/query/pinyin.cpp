#include "search/query/pinyin.h"

#include "search/query/hantables.h"

#include <QVector>

#include <cstring>

namespace search::query {
namespace {

/// For each character a bit per letter that one of its readings begins with.
const QVector<quint32> &firstLetters()
{
    static const QVector<quint32> letters = [] {
        QVector<quint32> made(lastHan - firstHan + 1);
        for (int i = 0; hanReadingCount > 0 && i < made.size(); ++i) {
            for (unsigned k = hanReadingStarts[i]; k < hanReadingStarts[i + 1]; ++k)
                made[i] |= 1u << (pinyinSyllables[hanReadings[k]][0] - 'a');
        }
        return made;
    }();
    return letters;
}

/// The character at `text`, if it is one of the table's; all of them take three bytes.
int hanAt(const char *text, const char *end)
{
    if (end - text < 3 || (static_cast<unsigned char>(text[0]) & 0xF0) != 0xE0)
        return -1;
    const int code = (text[0] & 0x0F) << 12 | (text[1] & 0x3F) << 6 | (text[2] & 0x3F);
    return code >= firstHan && code <= lastHan ? code - firstHan : -1;
}

/// "zh", "ch" and "sh" are one initial.
bool hasLongInitial(const char *syllable)
{
    return syllable[1] == 'h' && std::strchr("zcs", syllable[0]);
}

// Ends soon: a word is short, and a character has a handful of readings that begin with a letter.
bool readsOn(const char *text, const char *end, const char *word)
{
    if (!*word)
        return true;
    const int han = hanAt(text, end);
    if (han < 0 || !(firstLetters().at(han) & 1u << (*word - 'a')))
        return false;
    const size_t left = std::strlen(word);
    for (unsigned k = hanReadingStarts[han]; k < hanReadingStarts[han + 1]; ++k) {
        const char *syllable = pinyinSyllables[hanReadings[k]];
        const size_t length = std::strlen(syllable);
        if (left <= length && std::memcmp(syllable, word, left) == 0)
            return true;
        if (left > length && std::memcmp(syllable, word, length) == 0 &&
            readsOn(text + 3, end, word + length))
            return true;
        if (hasLongInitial(syllable) && word[1] == 'h' && word[0] == syllable[0] &&
            readsOn(text + 3, end, word + 2))
            return true;
    }
    return readsOn(text + 3, end, word + 1);
}

} // namespace

bool mayBePinyin(const QByteArray &word)
{
    for (const char c : word) {
        if (c < 'a' || c > 'z')
            return false;
    }
    return word.size() >= 2 && hanReadingCount > 0;
}

bool readsAs(const char *text, int size, const QByteArray &word)
{
    const QVector<quint32> &letters = firstLetters();
    const quint32 first = 1u << (word.at(0) - 'a');
    const char *end = text + size;
    for (const char *at = text; at < end;) {
        const int han = hanAt(at, end);
        if (han >= 0 && letters.at(han) & first && readsOn(at, end, word.constData()))
            return true;
        at += han >= 0 ? 3 : 1;
    }
    return false;
}

} // namespace search::query
