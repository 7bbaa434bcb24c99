#include "share/responses.h"

#include "share/escaping.h"
#include "share/pagetemplates.h"
#include "share/peersocket.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QLocale>

namespace share {

namespace {

const char kFixedLines[] = "Cache-Control: no-store, no-cache, must-revalidate, max-age=0\r\n"
                           "Surrogate-Control: no-store\r\n"
                           "Pragma: no-cache\r\n"
                           "Expires: Thu, 01 Jan 1970 00:00:00 GMT\r\n"
                           "Vary: Cookie\r\n"
                           "Connection: close\r\n";

QString httpDate()
{
    return QLocale::c().toString(QDateTime::currentDateTimeUtc(),
                                 QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"));
}

void appendLine(QByteArray *out, const QString &key, const QString &value)
{
    *out += headerText(key).toUtf8() + ": " + headerText(value).toUtf8() + "\r\n";
}

} // namespace

QString htmlContentType()
{
    return QStringLiteral("text/html; charset=utf-8");
}

void sendResponse(PeerSocket *socket, int code, const QString &statusText, const QByteArray &body,
                  const QString &contentType, const HeaderMap &extraHeaders)
{
    QByteArray out =
        "HTTP/1.1 " + QByteArray::number(code) + ' ' + headerText(statusText).toLatin1() + "\r\n";
    appendLine(&out, QStringLiteral("Content-Type"), contentType);
    appendLine(&out, QStringLiteral("Content-Length"), QString::number(body.size()));
    appendLine(&out, QStringLiteral("Date"), httpDate());
    out += kFixedLines;
    for (auto it = extraHeaders.begin(); it != extraHeaders.end(); ++it)
        appendLine(&out, it.key(), it.value());
    out += "\r\n";
    out += body;
    socket->writeResponse(out);
}

void sendJson(PeerSocket *socket, int code, const QString &statusText, const QJsonObject &object,
              const HeaderMap &extraHeaders)
{
    sendResponse(socket, code, statusText, QJsonDocument(object).toJson(QJsonDocument::Compact),
                 QStringLiteral("application/json; charset=utf-8"), extraHeaders);
}

void sendJsonFailure(PeerSocket *socket, int code, const QString &statusText,
                     const QString &message, const HeaderMap &extraHeaders)
{
    sendJson(socket, code, statusText,
             {{QStringLiteral("ok"), false}, {QStringLiteral("message"), message}}, extraHeaders);
}

void sendError(PeerSocket *socket, int code, const QString &title, const QString &message)
{
    const QByteArray body = pageTemplate("error").filled(
        {{"code", QString::number(code)}, {"title", title}, {"message", message}});
    const QByteArray head = pageTemplate("error-head").filled({{"code", QString::number(code)}});
    sendResponse(socket, code, title, page(title, body, head));
}

} // namespace share
