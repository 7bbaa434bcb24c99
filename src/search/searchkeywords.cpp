#include "search/searchkeywords.h"

#include <QRegularExpression>

namespace search {

QStringList splitKeywords(const QString &text)
{
    static const QRegularExpression separators(QStringLiteral("[\n\r,;]+"));
    QStringList keywords;
    const QStringList parts = text.split(separators);
    for (const QString &part : parts) {
        const QString keyword = part.trimmed();
        if (!keyword.isEmpty() && !keywords.contains(keyword, Qt::CaseInsensitive))
            keywords.append(keyword);
    }
    return keywords;
}

QString buildFtsMatchExpr(const QString &keyword)
{
    static const QString special = QStringLiteral("{}+-^:'()\"");
    QString cleaned = keyword.trimmed();
    for (QChar &c : cleaned) {
        if (special.contains(c))
            c = QLatin1Char(' ');
    }
    cleaned = cleaned.trimmed();
    if (cleaned.isEmpty())
        return QString();
    return QLatin1Char('"') + cleaned + QLatin1String("\"*");
}

QString likePattern(const QString &keyword)
{
    return QLatin1Char('%') + keyword + QLatin1Char('%');
}

} // namespace search
