#include "share/escaping.h"

#include <QUrl>

namespace share {

QByteArray htmlEscaped(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    QByteArray escaped;
    escaped.reserve(utf8.size() + utf8.size() / 8);
    for (const char c : utf8) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

QString encodedPath(const QString &path)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(path, QByteArrayLiteral("/")));
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
