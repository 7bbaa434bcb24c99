#include "search/query/spellings.h"

#include "search/query/folding.h"

#include <QRegularExpression>

namespace search::query {
namespace {

bool isFullWidth(QChar c)
{
    return c >= QChar(0xFF01) && c <= QChar(0xFF5E);
}

/// All characters that `c` may be written as.
QString spellingsOf(QChar c)
{
    const QChar half = isFullWidth(c) ? QChar(c.unicode() - 0xFEE0) : c;
    if (half <= QLatin1Char(' ') || half > QLatin1Char('~'))
        return hanSpellings(c);
    QString spellings(half.toLower());
    if (half.toUpper() != half.toLower())
        spellings += half.toUpper();
    for (int i = 0, n = spellings.size(); i < n; ++i)
        spellings += QChar(spellings.at(i).unicode() + 0xFEE0);
    return spellings;
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
    for (const QChar c : word) {
        const QString spellings = spellingsOf(c);
        if (special.contains(spellings.at(0)))
            glob += c;
        else
            glob += QLatin1Char('[') + spellings + QLatin1Char(']');
    }
    return glob + QLatin1Char('*');
}

QString spellingIn(const QString &text, const QString &word)
{
    QString pattern;
    for (const QChar c : word) {
        QStringList choices;
        const QString spellings = spellingsOf(c);
        for (const QChar spelling : spellings)
            choices.append(QRegularExpression::escape(QString(spelling)));
        pattern += QLatin1String("(?:") + choices.join(QLatin1Char('|')) + QLatin1Char(')');
    }
    return QRegularExpression(pattern).match(text).captured(0);
}

} // namespace search::query
