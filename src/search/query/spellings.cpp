#include "search/query/spellings.h"

#include "search/query/folding.h"

#include <QRegularExpression>

namespace search::query {
namespace {

bool isFullWidth(QChar c)
{
    return c >= QChar(0xFF01) && c <= QChar(0xFF5E);
}

/// All characters that the one at `i` may be written as. Those beyond the first plane stand for
/// themselves, as two units.
QString spellingsAt(const QString &word, int i)
{
    const QChar c = word.at(i);
    if (c.isHighSurrogate() && i + 1 < word.size())
        return word.mid(i, 2);
    const QChar half = isFullWidth(c) ? QChar(c.unicode() - 0xFEE0) : c;
    if (half <= QLatin1Char(' ') || half > QLatin1Char('~'))
        return hanSpellings(c);
    QString spellings(half.toLower());
    if (half.toUpper() != half.toLower())
        spellings += half.toUpper();
    for (int n = 0, size = spellings.size(); n < size; ++n)
        spellings += QChar(spellings.at(n).unicode() + 0xFEE0);
    return spellings;
}

bool isPair(const QString &spellings)
{
    return spellings.at(0).isHighSurrogate();
}

} // namespace

bool hasOtherSpellings(const QString &word)
{
    for (const QChar c : word) {
        if (isFullWidth(c) || hanSpellings(c).size() > 1)
            return true;
    }
    return false;
}

QString spellingGlob(const QString &word)
{
    // Inside brackets these three have a meaning of their own; they stand for themselves outside.
    static const QString special = QStringLiteral("]^-");
    QString glob = QStringLiteral("*");
    for (int i = 0; i < word.size(); ++i) {
        const QChar c = word.at(i);
        const QString spellings = spellingsAt(word, i);
        i += isPair(spellings) ? 1 : 0;
        if (isPair(spellings))
            glob += spellings;
        else if (special.contains(spellings.at(0)))
            glob += c;
        else
            glob += QLatin1Char('[') + spellings + QLatin1Char(']');
    }
    return glob + QLatin1Char('*');
}

QString spellingIn(const QString &text, const QString &word)
{
    QString pattern;
    for (int i = 0; i < word.size(); ++i) {
        const QChar c = word.at(i);
        // A blank between Han and Latin may come or go.
        if (c == QLatin1Char(' ')) {
            pattern += QLatin1String(" ?");
            continue;
        }
        if (i > 0 && (c.unicode() < 0x80) != (word.at(i - 1).unicode() < 0x80))
            pattern += QLatin1String(" ?");
        QStringList choices;
        const QString spellings = spellingsAt(word, i);
        if (isPair(spellings)) {
            pattern += spellings;
            ++i;
            continue;
        }
        for (const QChar spelling : spellings)
            choices.append(QRegularExpression::escape(QString(spelling)));
        pattern += QLatin1String("(?:") + choices.join(QLatin1Char('|')) + QLatin1Char(')');
    }
    return QRegularExpression(pattern).match(text).captured(0);
}

} // namespace search::query
