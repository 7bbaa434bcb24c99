#pragma once

#include "share/fileshareservercontext.h"

#include <QAtomicInt>
#include <QSharedPointer>
#include <QString>

struct HttpRequest;

namespace share {

class PeerSocket;
struct ShareExchange;

/// Takes one open request off its session's counter at the end of a scope, when armed.
class SessionCounterGuard
{
public:
    SessionCounterGuard() = default;
    ~SessionCounterGuard();
    SessionCounterGuard(const SessionCounterGuard &) = delete;
    SessionCounterGuard &operator=(const SessionCounterGuard &) = delete;

    /// Counts one more open request, unless `maxClients` are open already. Without a counter there
    /// is no limit.
    [[nodiscard]] bool enter(const QSharedPointer<QAtomicInt> &counter, int maxClients);

private:
    QAtomicInt *m_counter = nullptr;
    QSharedPointer<QAtomicInt> m_keepAlive;
    bool m_armed = false;
};

/// Applies every check of a session in its order and hands the request on to its handler.
void handleSessionRequest(ShareExchange *exchange);

/// True if the request's cookie carries the session's one login token.
bool checkAuth(const ShareContextPtr &context, const HttpRequest &request,
               const QString &sessionId);
/// A password from the form. The right one signs out whoever was logged in to this session.
void handleAuthPost(const ShareExchange &exchange);
void serveAuthPage(PeerSocket *socket, const QString &sessionId, bool showError);

} // namespace share
