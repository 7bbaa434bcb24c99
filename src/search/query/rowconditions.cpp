#include "search/query/rowconditions.h"

#include "search/searchkeywords.h"

namespace search::query {
namespace {

void addCondition(RowFilter *filter, const QString &condition, const QStringList &patterns)
{
    if (!filter->condition.isEmpty())
        filter->condition += QLatin1String(" AND ");
    filter->condition += condition;
    filter->patterns += patterns;
}

/// "(a LIKE ? OR b LIKE ?)". Unlike NOT, IS NOT 1 holds for columns without a value too.
void addLike(RowFilter *filter, const QStringList &columns, const QString &pattern, bool escaped,
             bool negated)
{
    const QString like =
        escaped ? QStringLiteral(" LIKE ? ESCAPE '\\'") : QStringLiteral(" LIKE ?");
    QStringList patterns;
    for (int i = 0; i < columns.size(); ++i)
        patterns.append(pattern);
    addCondition(filter,
                 QLatin1Char('(') + columns.join(like + QLatin1String(" OR ")) + like +
                     QLatin1Char(')') + QLatin1String(negated ? " IS NOT 1" : ""),
                 patterns);
}

QString escaped(QString text)
{
    text.replace(QLatin1Char('\\'), QLatin1String("\\\\"));
    text.replace(QLatin1Char('%'), QLatin1String("\\%"));
    return text.replace(QLatin1Char('_'), QLatin1String("\\_"));
}

void addRange(RowFilter *filter, const QString &column, const Range &range)
{
    if (!range.isUnlimited()) {
        addCondition(filter,
                     QStringLiteral("%1 BETWEEN %2 AND %3")
                         .arg(column, QString::number(range.least), QString::number(range.most)),
                     QStringList());
    }
}

} // namespace

void addWords(RowFilter *filter, const QStringList &words, const QStringList &columns)
{
    for (const QString &word : words)
        addLike(filter, columns, likePattern(word), false, false);
}

void addTerms(RowFilter *filter, const Query &query, const QStringList &columns, bool exactOnly)
{
    if (query.isPlainWord()) {
        if (!exactOnly)
            addWords(filter, {query.terms.first().text}, columns);
        return;
    }
    for (const Term &term : query.terms) {
        if (term.exact || term.negated || !exactOnly)
            addLike(filter, columns, likePattern(escaped(term.text)), true, term.negated);
    }
}

void addFilters(RowFilter *filter, const Query &query)
{
    for (const Pattern &name : query.names) {
        QString pattern = escaped(name.text);
        pattern.replace(QLatin1Char('*'), QLatin1Char('%'));
        pattern.replace(QLatin1Char('?'), QLatin1Char('_'));
        addLike(filter, {QStringLiteral("file_name")}, pattern, true, name.negated);
    }
    for (const Pattern &folder : query.folders) {
        // What the name holds does not count: a slash must follow.
        QString pattern = likePattern(escaped(folder.text));
        if (!folder.text.endsWith(QLatin1Char('/')))
            pattern += QLatin1String("/%");
        addLike(filter, {QStringLiteral("path")}, pattern, true, folder.negated);
    }
    addRange(filter, QStringLiteral("size"), query.size);
    addRange(filter, QStringLiteral("modified_ms"), query.modifiedMs);
}

} // namespace search::query
