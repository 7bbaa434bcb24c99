#include "search/searchsnippet.h"

#include <QRegularExpression>

#include <algorithm>

namespace search {
namespace {

constexpr int lineUnits = 120;     // longest line that is shown whole
constexpr int lineReach = 60;      // context on either side in a longer line
constexpr int contentReach = 50;   // context when the match spans lines
constexpr int substringReach = 40; // context of a plain substring hit

QString ellipsis()
{
    return QStringLiteral("...");
}

// `text` with the `length` units at `position` marked.
QString marked(const QString &text, int position, int length)
{
    return text.left(position) + QLatin1String("<b>") + text.mid(position, length) +
           QLatin1String("</b>") + text.mid(position + length);
}

// The match at `position` with `reach` units of context, dots where text was left out.
QString markedWithContext(const QString &text, int position, int length, int reach)
{
    const int begin = std::max(0, position - reach);
    const int end = std::min(text.size(), position + length + reach);
    QString snippet = marked(text.mid(begin, end - begin), position - begin, length);
    if (begin > 0)
        snippet.prepend(ellipsis());
    if (end < text.size())
        snippet.append(ellipsis());
    return snippet;
}

bool isLineBreak(QChar c)
{
    return c == QLatin1Char('\r') || c == QLatin1Char('\n');
}

// Control characters that a snippet shows as a blank; line feed, line break and tab are spaces.
bool isBlankedControl(QChar c)
{
    const ushort u = c.unicode();
    return u < 0x20 && u != '\t' && u != '\n' && u != '\r';
}

// True if simplifying a line cannot make or break a match of `needle`: only runs of spaces and
// control characters change, so a needle without any is found in the raw line just as well.
bool survivesSimplifying(const QString &needle)
{
    return std::none_of(needle.begin(), needle.end(),
                        [](QChar c) { return c.isSpace() || isBlankedControl(c); });
}

// The first simplified line that holds `needle`, and where; empty if there is none.
QString firstLineWith(const QString &content, const QString &needle, int *position)
{
    const bool plain = survivesSimplifying(needle);
    int from = 0;
    if (plain) {
        // Straight to the line of the first raw match, without looking at those before it.
        from = content.indexOf(needle, 0, Qt::CaseInsensitive);
        if (from < 0)
            return QString();
        while (from > 0 && !isLineBreak(content.at(from - 1)))
            --from;
    }
    while (from < content.size()) {
        int end = from;
        while (end < content.size() && !isLineBreak(content.at(end)))
            ++end;
        const QString line = simplifySnippetLine(content.mid(from, end - from));
        *position = line.indexOf(needle, 0, Qt::CaseInsensitive);
        if (*position >= 0)
            return line;
        from = end + 1;
    }
    return QString();
}

QString lineSnippet(const QString &content, const QString &needle)
{
    int position = -1;
    QString line = firstLineWith(content, needle, &position);
    if (line.isEmpty())
        return QString();
    if (line.size() > lineUnits) {
        const bool fromStart = position - lineReach < 1;
        const int begin = fromStart ? 0 : position - lineReach;
        const int end = fromStart ? lineUnits : std::min(position + lineReach, line.size());
        const bool cutEnd = end < line.size();
        line = (fromStart ? QString() : ellipsis()) + line.mid(begin, end - begin);
        if (cutEnd)
            line += ellipsis();
        position = line.indexOf(needle, 0, Qt::CaseInsensitive);
    }
    return position < 0 ? QString() : marked(line, position, needle.size());
}

} // namespace

QString simplifySnippetLine(const QString &line)
{
    QString plain = line;
    for (QChar &c : plain) {
        if (isBlankedControl(c))
            c = QLatin1Char(' ');
    }
    // Joins each run of blanks, tabs among them, so blanking one by one is as good as run by run.
    return plain.simplified();
}

QString makeSnippetAround(const QString &content, const QString &needle)
{
    if (content.isEmpty() || needle.isEmpty())
        return QString();
    const QString snippet = lineSnippet(content, needle);
    if (!snippet.isEmpty())
        return snippet;
    const int position = content.indexOf(needle, 0, Qt::CaseInsensitive);
    if (position < 0)
        return QString();
    return simplifySnippetLine(markedWithContext(content, position, needle.size(), contentReach));
}

QString makeSnippetAroundAny(const QString &content, const QStringList &needles)
{
    int best = -1;
    QString bestNeedle;
    for (const QString &needle : needles) {
        const int position = content.indexOf(needle, 0, Qt::CaseInsensitive);
        if (position >= 0 && (best < 0 || position < best)) {
            best = position;
            bestNeedle = needle;
        }
    }
    return best < 0 ? QString() : makeSnippetAround(content, bestNeedle);
}

QString makePrimarySnippet(const QString &content, const QString &keyword)
{
    const QString snippet = makeSnippetAround(content, keyword);
    if (!snippet.isEmpty())
        return snippet;
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    QStringList words = keyword.split(blanks);
    words.removeAll(QString());
    return words.size() < 2 ? QString() : makeSnippetAroundAny(content, words);
}

QString makeSubstringSnippet(const QString &content, const QString &keyword)
{
    if (keyword.isEmpty())
        return QString();
    const int position = content.indexOf(keyword, 0, Qt::CaseInsensitive);
    return position < 0 ? QString()
                        : markedWithContext(content, position, keyword.size(), substringReach);
}

} // namespace search
