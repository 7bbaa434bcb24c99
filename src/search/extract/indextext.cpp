#include "search/extract/indextext.h"

#include "search/contentextractor.h"
#include "search/extract/layouttext.h"
#include "search/extract/oletext.h"
#include "search/extract/readerpool.h"
#include "search/extract/toolrunner.h"

#include <QFileInfo>
#include <QSet>

namespace search {

namespace {

/// What the chain of tools keeps of a document.
constexpr int toolBytes = 16384;

/// Formats that the readers know as a whole: notes, comments, text boxes and numbers too, where the
/// tools give the body at best.
bool isOwnFormat(const QString &suffix)
{
    static const QSet<QString> suffixes = [] {
        const QStringList names =
            QStringLiteral("doc docx xls xlsx ppt pptx wps et dps rtf odt ods odp odg ofd epub htm "
                           "html eml mbox srt zip")
                .split(QLatin1Char(' '));
        QSet<QString> set;
        for (const QString &name : names)
            set.insert(name);
        return set;
    }();
    return suffixes.contains(suffix);
}

bool isHan(QChar c)
{
    return (c.unicode() >= 0x3400 && c.unicode() <= 0x9FFF) ||
           (c.unicode() >= 0xF900 && c.unicode() <= 0xFAFF);
}

/// Han characters, letters and digits: what a search can find.
int countLetters(const QString &text)
{
    int count = 0;
    for (const QChar c : text)
        count += c.isLetterOrNumber() ? 1 : 0;
    return count;
}

bool hasHan(const QString &text)
{
    for (const QChar c : text) {
        if (isHan(c))
            return true;
    }
    return false;
}

/// Characters that stand for others which were lost.
bool isGarbled(const QString &text)
{
    return text.contains(QChar(0xFFFD)) || text.contains(QLatin1String("????"));
}

/// True for plain text that cannot be anything else than what it was decoded to.
bool isCertain(const QString &text)
{
    if (text.isEmpty() || isGarbled(text))
        return false;
    for (const QChar c : text) {
        if (c.unicode() >= 0x80)
            return hasHan(text);
        if (c.unicode() == 0x1B) // It may switch to another character set.
            return false;
    }
    return true;
}

ReaderLimits limitsOf(int maxBytes)
{
    return {maxBytes, qMax(maxBytes, maxTextChars)};
}

} // namespace

const QString &betterText(const QString &fromTools, const QString &fromReaders)
{
    const int own = countLetters(fromReaders);
    if (own == 0)
        return fromTools;
    const bool loses = isGarbled(fromTools) && !isGarbled(fromReaders);
    if (loses || !hasMeaningfulExtractedText(fromTools) ||
        (hasHan(fromReaders) && !hasHan(fromTools)))
        return fromReaders;
    // Text in parts is the better one unless much is missing in it.
    return own * 10 >= countLetters(fromTools) * 9 ? fromReaders : fromTools;
}

IndexText readForIndex(ReaderPool &readers, const QString &path, int maxBytes,
                       const std::atomic_bool *cancel)
{
    const QFileInfo info(path);
    const QString suffix = info.suffix().toLower();
    if (!info.isFile()) // A pipe would block.
        return IndexText();
    if (suffix == QLatin1String("pdf"))
        return readPdf(path, maxBytes, cancel);
    const bool ownFirst = isOwnFormat(suffix);
    ReaderAnswer answer;
    if (ownFirst) {
        answer = readers.read(path, limitsOf(maxBytes), cancel);
        if (countLetters(answer.text) > 0)
            return {answer.text, answer.isCut};
    }
    const QString fromTools = ContentExtractor::readContentSnippet(path, maxBytes, cancel);
    const bool plainIsCut = info.size() > maxBytes;
    if (ownFirst || isCertain(fromTools))
        return {fromTools, ownFirst ? fromTools.toUtf8().size() >= toolBytes - 4 : plainIsCut};
    answer = readers.read(path, limitsOf(maxBytes), cancel);
    const QString &text = betterText(fromTools, answer.text);
    return {text, !text.isEmpty() && plainIsCut};
}

IndexText readForIndex(const QString &path, int maxBytes, const std::atomic_bool *cancel)
{
    return readForIndex(ReaderPool::shared(), path, maxBytes, cancel);
}

} // namespace search
