#include "share/sessiongate.h"

#include "share/browse.h"
#include "share/filesharedb.h"
#include "share/httprequest.h"
#include "share/pagetemplates.h"
#include "share/responses.h"
#include "share/shareexchange.h"
#include "share/sharepaths.h"
#include "share/upload.h"

#include <QDateTime>
#include <QMutexLocker>
#include <QUuid>

namespace share {

namespace {

QSharedPointer<QAtomicInt> counterOf(const ShareContextPtr &context, const QString &sessionId)
{
    QMutexLocker lock(&context->sessionCountersMutex);
    return context->sessionCounters.value(sessionId);
}

/// The record of the session, or an error page and an empty id.
ShareSession servedSession(const ShareExchange &exchange)
{
    const auto refuse = [&](int code, const QString &title, const QString &message) {
        sendError(exchange.socket, code, title, message);
        return ShareSession();
    };
    if (exchange.sessionId.isEmpty())
        return refuse(400, QStringLiteral("请求错误"), QStringLiteral("缺少共享标识。"));
    const ShareSession session = FileShareDb::querySession(exchange.database, exchange.sessionId);
    if (session.id.isEmpty())
        return refuse(404, QStringLiteral("未找到"), QStringLiteral("未找到该共享。"));
    if (session.expiresAt > 0 && session.expiresAt < QDateTime::currentMSecsSinceEpoch()) {
        postSessionExpired(exchange.context, exchange.sessionId);
        return refuse(410, QStringLiteral("已过期"), QStringLiteral("该共享已过期。"));
    }
    if (!session.isActive())
        return refuse(410, QStringLiteral("已停止"), QStringLiteral("该共享已停止。"));
    return session;
}

void askForLogin(const ShareExchange &exchange)
{
    const bool isScript = exchange.subPath.startsWith(uploadCheckPrefix()) ||
                          exchange.subPath.startsWith(uploadPrefix());
    if (isScript)
        sendJsonFailure(exchange.socket, 401, QStringLiteral("Unauthorized"),
                        QStringLiteral("需要先完成访问认证。"));
    else
        serveAuthPage(exchange.socket, exchange.sessionId, false);
}

void dispatch(const ShareExchange &exchange, const ShareSession &session)
{
    if (exchange.subPath.startsWith(uploadCheckPrefix())) {
        handleUploadCheck(exchange, session);
        return;
    }
    if (exchange.subPath.startsWith(uploadPrefix())) {
        handleUploadPut(exchange, session);
        return;
    }
    if (exchange.subPath.isEmpty()) {
        serveRootList(exchange, session);
        exchange.log(QStringLiteral("browse"), QStringLiteral("/"));
        return;
    }
    QString rootId;
    QString relativePath;
    if (splitRootAndRelativePath(exchange.subPath, &rootId, &relativePath))
        serveBrowse(exchange, session, rootId, relativePath);
    else
        sendError(exchange.socket, 400, QStringLiteral("请求错误"),
                  QStringLiteral("路径参数无效。"));
}

} // namespace

SessionCounterGuard::~SessionCounterGuard()
{
    if (m_armed)
        m_counter->deref();
}

bool SessionCounterGuard::enter(const QSharedPointer<QAtomicInt> &counter, int maxClients)
{
    if (!counter)
        return true;
    if (counter->fetchAndAddOrdered(1) >= maxClients) {
        counter->deref();
        return false;
    }
    m_counter = counter.data();
    m_keepAlive = counter;
    m_armed = true;
    return true;
}

void handleSessionRequest(ShareExchange *exchange)
{
    const ShareSession session = servedSession(*exchange);
    if (session.id.isEmpty())
        return;
    SessionCounterGuard guard;
    if (!guard.enter(counterOf(exchange->context, exchange->sessionId), session.maxClients)) {
        sendError(exchange->socket, 503, QStringLiteral("服务不可用"),
                  QStringLiteral("当前连接数过多，请稍后再试。"));
        return;
    }
    if (exchange->subPath == QLatin1String("auth")) {
        if (exchange->request->method == QLatin1String("POST"))
            handleAuthPost(*exchange);
        else
            serveAuthPage(exchange->socket, exchange->sessionId, false);
        return;
    }
    // A record that could not be read has no id, so a failing database never opens a share.
    if (session.hasPassword &&
        !checkAuth(exchange->context, *exchange->request, exchange->sessionId))
        askForLogin(*exchange);
    else
        dispatch(*exchange, session);
}

bool checkAuth(const ShareContextPtr &context, const HttpRequest &request, const QString &sessionId)
{
    const QString prefix = QStringLiteral("sess=");
    const QStringList parts =
        request.headers.value(QStringLiteral("cookie")).split(QLatin1Char(';'));
    for (const QString &part : parts) {
        const QString cookie = part.trimmed();
        if (!cookie.startsWith(prefix))
            continue;
        const QString token = cookie.mid(prefix.size());
        QMutexLocker lock(&context->authTokensMutex);
        return !token.isEmpty() && context->authTokens.value(sessionId) == token;
    }
    return false;
}

void handleAuthPost(const ShareExchange &exchange)
{
    const QString prefix = QStringLiteral("password=");
    QString password;
    const QByteArray &body = exchange.request->body;
    // With its size: without it the form would end at the first NUL.
    const QStringList parts =
        QString::fromUtf8(body.constData(), body.size()).split(QLatin1Char('&'));
    for (const QString &part : parts) {
        if (part.startsWith(prefix)) {
            password = percentDecode(part.mid(prefix.size()));
            break;
        }
    }
    const QString stored = FileShareDb::queryPasswordHash(exchange.database, exchange.sessionId);
    if (stored.isEmpty() || FileShareDb::hashPassword(password) != stored) {
        exchange.log(QStringLiteral("auth_fail"));
        serveAuthPage(exchange.socket, exchange.sessionId, true);
        return;
    }
    const QString token = QUuid::createUuid().toString(QUuid::WithoutBraces);
    {
        QMutexLocker lock(&exchange.context->authTokensMutex);
        exchange.context->authTokens.insert(exchange.sessionId, token);
    }
    const QString home = QStringLiteral("/s/") + exchange.sessionId;
    sendResponse(exchange.socket, 302, QStringLiteral("Found"), QByteArray(),
                 QStringLiteral("text/html"),
                 {{QStringLiteral("Set-Cookie"), QStringLiteral("sess=") + token +
                                                     QStringLiteral("; Path=") + home +
                                                     QStringLiteral("; HttpOnly")},
                  {QStringLiteral("Location"), home + QLatin1Char('/')}});
    exchange.log(QStringLiteral("auth_ok"));
}

void serveAuthPage(PeerSocket *socket, const QString &sessionId, bool showError)
{
    QByteArray error;
    if (showError)
        error = pageTemplate("auth-error").filled({{"text", QStringLiteral("密码错误，请重试")}});
    const QString heading = QStringLiteral("需要密码");
    const QByteArray body = pageTemplate("auth").filled(
        {{"heading", heading}, {"error", error}, {"session", sessionId}});
    sendResponse(socket, 200, QStringLiteral("OK"), page(heading, body));
}

} // namespace share
