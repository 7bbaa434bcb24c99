#include "search/query/querylanguage.h"

#include "search/query/folding.h"

namespace search::query {
namespace {

bool isQuote(QChar c)
{
    static const QString quotes = QStringLiteral("\"“”＂");
    return quotes.contains(c);
}

bool isColon(QChar c)
{
    return c == QLatin1Char(':') || c == QChar(0xFF1A);
}

/// One piece of a line between blanks. Quotes keep blanks together.
struct Token
{
    QString text;         ///< Without quotes.
    bool quoted = false;  ///< Begins with a quote, a minus sign apart.
    bool negated = false; ///< Has lost a minus sign in front.
};

Token takeToken(const QString &line, int *position)
{
    Token token;
    int i = *position;
    // A lone minus sign is a word, and one inside a word is a letter of it.
    if (line.at(i) == QLatin1Char('-') && i + 1 < line.size() && !line.at(i + 1).isSpace()) {
        token.negated = true;
        ++i;
    }
    token.quoted = isQuote(line.at(i));
    bool inQuotes = false;
    for (; i < line.size() && (inQuotes || !line.at(i).isSpace()); ++i) {
        // Quotes open a phrase at the start of a word or behind a key's colon; 5"-disk has none.
        if (inQuotes && isQuote(line.at(i))) {
            inQuotes = false;
            if (token.quoted) {
                ++i;
                break;
            }
        } else if (!inQuotes && isQuote(line.at(i)) &&
                   (token.text.isEmpty() || isColon(line.at(i - 1)))) {
            inQuotes = true;
        } else {
            token.text += line.at(i);
        }
    }
    *position = i;
    return token;
}

/// Takes "key:value" if the key is known and the value has its form.
bool takeFilter(const Token &token, Query *query)
{
    int colon = 0;
    while (colon < token.text.size() && !isColon(token.text.at(colon)))
        ++colon;
    const QString key = folded(token.text.left(colon));
    const QString value = token.text.mid(colon + 1);
    if (value.isEmpty())
        return false;
    if (key == QLatin1String("path")) {
        query->folders.append({value, token.negated});
        return true;
    }
    Range range = Range::unlimited();
    if (token.negated)
        return false;
    if (key == QLatin1String("size") && parseSizes(value, &range)) {
        query->size = {qMax(query->size.least, range.least), qMin(query->size.most, range.most)};
        return true;
    }
    if (key == QLatin1String("date") && parseDates(value, &range)) {
        query->modifiedMs = {qMax(query->modifiedMs.least, range.least),
                             qMin(query->modifiedMs.most, range.most)};
        return true;
    }
    return false;
}

void takeMeaning(const Token &token, Query *query)
{
    const QString text = token.text.trimmed();
    if (text.isEmpty())
        return;
    if (token.quoted)
        query->terms.append({text, true, token.negated});
    else if (takeFilter(token, query))
        return;
    else if (text.contains(QLatin1Char('*')))
        query->names.append({text, token.negated});
    else
        query->terms.append({text, false, token.negated});
}

} // namespace

bool Query::isEmpty() const
{
    return terms.isEmpty() && !hasFilters();
}

bool Query::hasFilters() const
{
    return !names.isEmpty() || !folders.isEmpty() || !size.isUnlimited() ||
           !modifiedMs.isUnlimited();
}

bool Query::isPlainWord() const
{
    return terms.size() == 1 && !hasFilters() && !terms.first().exact && !terms.first().negated;
}

QStringList Query::wantedWords() const
{
    QStringList words;
    for (const Term &term : terms) {
        if (!term.negated)
            words.append(term.text);
    }
    return words;
}

Query parse(const QString &line)
{
    Query query;
    int position = 0;
    while (position < line.size()) {
        if (line.at(position).isSpace())
            ++position;
        else
            takeMeaning(takeToken(line, &position), &query);
    }
    return query;
}

bool matchesPattern(const QString &name, const QString &pattern)
{
    int n = 0;
    int p = 0;
    int star = -1; // the last `*`, which takes one character more whenever the rest fails
    int taken = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern.at(p) == QLatin1Char('*')) {
            star = p++;
            taken = n;
        } else if (p < pattern.size() &&
                   (pattern.at(p) == QLatin1Char('?') || pattern.at(p) == name.at(n))) {
            ++n;
            ++p;
        } else if (star >= 0) {
            p = star + 1;
            n = ++taken;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern.at(p) == QLatin1Char('*'))
        ++p;
    return p == pattern.size();
}

} // namespace search::query
