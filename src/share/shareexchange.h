#pragma once

#include "share/fileshareservercontext.h"

#include <QSqlDatabase>
#include <QString>

struct HttpRequest;

namespace share {

class PeerSocket;

/// One request on its way through the handlers, with all that they need to answer it.
struct ShareExchange
{
    ShareContextPtr context;
    QSqlDatabase database;
    PeerSocket *socket;
    const HttpRequest *request;
    QString sessionId;
    QString subPath; ///< Behind the session's id, still percent-encoded.
    QString clientIp;

    void log(const QString &action, const QString &detail = QString()) const
    {
        postAccessLogged(context, sessionId, clientIp, action, detail);
    }
};

} // namespace share
