#include "search/extract/oletext.h"

#include <QFile>
#include <QSet>

#include <cstring>

namespace search {

namespace {

constexpr qint64 oleReadBytes = 2097152;
constexpr int oleMagicBytes = 8;
constexpr int minRunChars = 4;

struct LetterCount
{
    int cjk = 0;
    int letters = 0;
    int digits = 0;
};

bool isCjk(ushort unit)
{
    return unit >= 0x4E00 && unit <= 0x9FFF;
}

bool isAsciiLetter(ushort unit)
{
    return (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z');
}

bool isAsciiDigit(ushort unit)
{
    return unit >= '0' && unit <= '9';
}

/// Counts the first `length` characters.
LetterCount countLetters(const QString &text, int length)
{
    LetterCount count;
    for (int i = 0; i < length; ++i) {
        const ushort unit = text.at(i).unicode();
        count.cjk += isCjk(unit) ? 1 : 0;
        count.letters += isAsciiLetter(unit) ? 1 : 0;
        count.digits += isAsciiDigit(unit) ? 1 : 0;
    }
    return count;
}

bool belongsToRun(ushort unit)
{
    if (isAsciiLetter(unit) || isAsciiDigit(unit) || isCjk(unit))
        return true;
    return unit != 0 && unit < 0x80 && std::strchr("\r\n\t !\"#%&'()+,-./:;?[\\]_{}", unit);
}

/// Collects the texts of one scan.
class RunCollector
{
public:
    void add(ushort unit) { m_run.append(QChar(unit)); }

    void endRun()
    {
        if (m_run.isEmpty())
            return;
        const QString run = m_run.simplified();
        m_run.truncate(0);
        if (run.size() < minRunChars || !isMeaningfulOleString(run) || m_seen.contains(run))
            return;
        m_seen.insert(run);
        if (!m_text.isEmpty())
            m_text.append(QLatin1Char('\n'));
        m_text.append(run);
    }

    bool isFull() const { return m_text.size() > maxTextChars - 1; }
    QString text() const { return m_text; }

private:
    QString m_run;
    QString m_text;
    QSet<QString> m_seen;
};

} // namespace

QString cutText(const QString &text)
{
    if (text.size() <= maxTextChars)
        return text;
    const bool splitsPair = text.at(maxTextChars - 1).isHighSurrogate();
    return text.left(splitsPair ? maxTextChars - 1 : maxTextChars);
}

bool isOleCompoundDocument(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) &&
           file.read(oleMagicBytes) == QByteArray::fromHex("D0CF11E0A1B11AE1");
}

// The last character is left out of both counts below, on purpose: the thresholds were set with
// this count, and a change would move texts in and out of the index.
bool hasMeaningfulExtractedText(const QString &text)
{
    const QString plain = text.simplified();
    if (plain.size() < minRunChars)
        return false;
    const LetterCount count = countLetters(plain, plain.size() - 1);
    return count.cjk > 1 || count.letters > 5;
}

bool isMeaningfulOleString(const QString &text)
{
    const LetterCount count = countLetters(text, text.size() - 1);
    return count.cjk > 1 || count.letters > 3;
}

bool hasMeaningfulSlideText(const QString &text)
{
    const QString plain = text.simplified();
    const LetterCount count = countLetters(plain, plain.size());
    return plain.size() > 15 &&
           (count.cjk >= 2 || count.letters >= 12 || count.letters + count.digits > 15);
}

QString scanUtf16Text(const QByteArray &data)
{
    if (data.size() < oleMagicBytes)
        return QString();
    const auto *bytes = reinterpret_cast<const uchar *>(data.constData());
    RunCollector runs;
    for (int start = 0; start < 2 && !runs.isFull(); ++start) {
        for (int i = start; i + 1 < data.size() && !runs.isFull(); i += 2) {
            const auto unit = static_cast<ushort>(bytes[i] | bytes[i + 1] << 8);
            if (belongsToRun(unit))
                runs.add(unit);
            else
                runs.endRun();
        }
        runs.endRun();
    }
    return cutText(runs.text());
}

QString extractOleUtf16Text(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return scanUtf16Text(file.read(oleReadBytes));
}

} // namespace search
