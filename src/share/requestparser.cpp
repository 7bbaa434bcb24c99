#include "share/requestparser.h"

#include <QList>
#include <QPair>
#include <QUrlQuery>

namespace share {

namespace {

/// One more part is the protocol's version, which changes nothing here.
constexpr int kRequestLineParts = 2;

// QString's own conversions of a byte array end at its first NUL, so that "a.txt\0.png" would be
// read as "a.txt".
QString utf8Text(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes.constData(), bytes.size());
}

QString latin1Text(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.constData(), bytes.size());
}

void readRequestLine(const QByteArray &line, HttpRequest *request)
{
    QStringList parts = utf8Text(line.trimmed()).split(QLatin1Char(' '));
    parts.removeAll(QString());
    if (parts.size() < kRequestLineParts)
        return;
    request->method = parts.at(0);
    request->rawTarget = parts.at(1);
    const int mark = request->rawTarget.indexOf(QLatin1Char('?'));
    request->path = request->rawTarget.left(mark);
    if (mark >= 0)
        request->queryString = request->rawTarget.mid(mark + 1);
}

void readHeaderLine(const QByteArray &line, HttpRequest *request)
{
    const QByteArray text = line.trimmed();
    const int colon = text.indexOf(':');
    if (colon <= 0)
        return;
    const QString key = latin1Text(text.left(colon)).trimmed().toLower();
    request->headers.insert(key, utf8Text(text.mid(colon + 1)).trimmed());
}

void readQuery(HttpRequest *request)
{
    const QUrlQuery query(request->queryString);
    const QList<QPair<QString, QString>> items = query.queryItems(QUrl::FullyDecoded);
    for (const auto &item : items)
        request->queryParams.insert(item.first, item.second);
}

} // namespace

HttpRequest parseRequest(const QByteArray &bytes)
{
    HttpRequest request;
    const int end = bytes.indexOf("\r\n\r\n");
    const QByteArray header = end > 0 ? bytes.left(end) : bytes;
    if (header.isEmpty())
        return request;
    const QList<QByteArray> lines = header.split('\n');
    readRequestLine(lines.first(), &request);
    for (int i = 1; i < lines.size(); ++i)
        readHeaderLine(lines.at(i), &request);
    if (!request.queryString.isEmpty())
        readQuery(&request);
    bool isNumber = false;
    const qint64 length =
        request.headers.value(QStringLiteral("content-length")).toLongLong(&isNumber);
    if (isNumber)
        request.contentLength = length;
    return request;
}

} // namespace share
