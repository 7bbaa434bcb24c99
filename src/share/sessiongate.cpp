#include "share/sessiongate.h"

#include "core/constanttime.h"
#include "share/browse.h"
#include "share/filesharedb.h"
#include "share/httprequest.h"
#include "share/pagetemplates.h"
#include "share/peersocket.h"
#include "share/requestorigin.h"
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

bool isUpload(const ShareExchange &exchange)
{
    return exchange.subPath.startsWith(uploadPrefix());
}

/// The addresses that the script of a page talks to.
bool isForScript(const ShareExchange &exchange)
{
    return isUpload(exchange) || exchange.subPath.startsWith(uploadCheckPrefix());
}

bool isLogin(const ShareExchange &exchange)
{
    return exchange.subPath == QLatin1String("auth");
}

/// Whether the request comes by way of another web site and could do harm: log in, store a file, or
/// give that site what needs no password. The cookie of a login is never sent by way of others.
bool isForeign(const ShareExchange &exchange, const ShareSession &session)
{
    const bool changes = isUpload(exchange) ||
                         (isLogin(exchange) && exchange.request->method == QLatin1String("POST"));
    return (changes || !session.hasPassword) &&
           !isOwnRequest(*exchange.request, exchange.socket->localAddress());
}

void refuseForeign(const ShareExchange &exchange)
{
    const QString message = QStringLiteral("请通过共享方提供的地址访问。");
    if (isUpload(exchange))
        exchange.log(QStringLiteral("upload_fail"), QStringLiteral("foreign_origin"));
    if (isForScript(exchange))
        sendJsonFailure(exchange.socket, 403, QStringLiteral("Forbidden"), message);
    else
        sendError(exchange.socket, 403, QStringLiteral("禁止访问"), message);
}

void askForLogin(const ShareExchange &exchange)
{
    if (isForScript(exchange))
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
    if (isUpload(exchange)) {
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

QString passwordOf(const QByteArray &form)
{
    const QString prefix = QStringLiteral("password=");
    // With its size: without it the form would end at the first NUL.
    const QStringList parts =
        QString::fromUtf8(form.constData(), form.size()).split(QLatin1Char('&'));
    for (const QString &part : parts) {
        if (part.startsWith(prefix))
            return percentDecode(part.mid(prefix.size()));
    }
    return QString();
}

QString waitText(int seconds)
{
    constexpr int kMinute = 60;
    return seconds < 2 * kMinute ? QStringLiteral("%1 秒").arg(seconds)
                                 : QStringLiteral("%1 分钟").arg((seconds + kMinute - 1) / kMinute);
}

/// An empty error shows none.
QByteArray authPage(const QString &sessionId, const QString &error)
{
    const QString heading = QStringLiteral("需要密码");
    const QByteArray note =
        error.isEmpty() ? QByteArray() : pageTemplate("auth-error").filled({{"text", error}});
    return page(heading, pageTemplate("auth").filled(
                             {{"heading", heading}, {"error", note}, {"session", sessionId}}));
}

void serveWaitPage(const ShareExchange &exchange, int seconds)
{
    const QString error = QStringLiteral("密码错误次数过多，请在 %1 后重试").arg(waitText(seconds));
    sendResponse(exchange.socket, 429, QStringLiteral("Too Many Requests"),
                 authPage(exchange.sessionId, error), htmlContentType(),
                 {{QStringLiteral("Retry-After"), QString::number(seconds)}});
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
    if (isForeign(*exchange, session)) {
        refuseForeign(*exchange);
        return;
    }
    if (isLogin(*exchange)) {
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
        return !token.isEmpty() &&
               core::equalInConstantTime(context->authTokens.value(sessionId).toUtf8(),
                                         token.toUtf8());
    }
    return false;
}

void handleAuthPost(const ShareExchange &exchange)
{
    const QString stored = FileShareDb::queryPasswordHash(exchange.database, exchange.sessionId);
    LoginThrottle::Attempt attempt;
    if (!stored.isEmpty()) // there is nothing to guess otherwise
        attempt = exchange.context->loginThrottle.begin(exchange.clientIp,
                                                        exchange.context->clock.elapsed());
    if (attempt.waitSeconds > 0) {
        serveWaitPage(exchange, attempt.waitSeconds);
        return;
    }
    const QString hash = FileShareDb::hashPassword(passwordOf(exchange.request->body));
    if (stored.isEmpty() || !core::equalInConstantTime(hash.toUtf8(), stored.toUtf8())) {
        exchange.log(QStringLiteral("auth_fail"));
        serveAuthPage(exchange.socket, exchange.sessionId, true);
        return;
    }
    exchange.context->loginThrottle.succeed(exchange.clientIp, attempt);
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
    const QString error = showError ? QStringLiteral("密码错误，请重试") : QString();
    sendResponse(socket, 200, QStringLiteral("OK"), authPage(sessionId, error));
}

} // namespace share
