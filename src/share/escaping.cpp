#include "share/escaping.h"

namespace share {

namespace {

const char *entityFor(char c)
{
    switch (c) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\'':
        return "&#39;";
    default:
        return nullptr;
    }
}

} // namespace

QByteArray htmlEscaped(const QString &text)
{
    return htmlEscaped(text.toUtf8());
}

QByteArray htmlEscaped(const QByteArray &utf8)
{
    QByteArray escaped;
    int done = 0;
    for (int i = 0; i < utf8.size(); ++i) {
        const char *entity = entityFor(utf8.at(i));
        if (!entity)
            continue;
        escaped.append(utf8.constData() + done, i - done);
        escaped.append(entity);
        done = i + 1;
    }
    if (done == 0) // as nearly always
        return utf8;
    return escaped.append(utf8.constData() + done, utf8.size() - done);
}

QString encodedPath(const QString &path)
{
    return QString::fromLatin1(encodedPath(path.toUtf8()));
}

QByteArray encodedPath(const QByteArray &utf8)
{
    QByteArray once = utf8;
    once.replace('%', "%25");
    return once.toPercentEncoding(QByteArrayLiteral("/"));
}

QString headerText(const QString &text)
{
    QString safe = text;
    for (QChar &c : safe) {
        if (c.category() == QChar::Other_Control)
            c = QLatin1Char('_');
    }
    return safe;
}

QString headerFileName(const QString &name)
{
    QString safe = headerText(name);
    safe.replace(QLatin1Char('"'), QLatin1Char('_'));
    if (safe.endsWith(QLatin1Char('\\')))
        safe[safe.size() - 1] = QLatin1Char('_');
    return safe;
}

} // namespace share
