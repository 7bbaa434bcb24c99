#pragma once

#include "share/filesharecontroller.h"
#include "share/filesharedb.h"
#include "share/fileshareserver.h"
#include "share/fileshareservercontext.h"
#include "support/temptree.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QScopedPointer>
#include <QStringList>
#include <QTcpSocket>

/// One answer, taken apart. `status` is 0 when the connection ended without any.
struct HttpReply
{
    int status = 0;
    QByteArray statusLine;
    QList<QByteArray> headerLines;
    QMap<QByteArray, QByteArray> headers; ///< Keys as sent.
    QByteArray body;

    bool says(const char *utf8) const { return body.contains(utf8); }
    static HttpReply parsed(const QByteArray &bytes);
};

/// One raw connection to a server in this process, whose event loop runs while this waits.
class ShareClient
{
public:
    explicit ShareClient(int port);

    void send(const QByteArray &bytes);
    /// True once `bytes` have come in all.
    bool waitForBytes(qint64 bytes, int timeoutMs = 10000);
    /// Everything until the server closes; what there is after `timeoutMs`.
    HttpReply reply(int timeoutMs = 10000);
    bool waitForClose(int timeoutMs);
    QTcpSocket &socket() { return m_socket; }

private:
    QTcpSocket m_socket;
};

/// A share server on a free port with a database, a controller that takes its reports, and a tree
/// to share.
class ShareHarness
{
public:
    ShareHarness();
    ~ShareHarness();

    /// Fills in what a test does not care for: active, download, no password, no expiry.
    static ShareSession session(const QString &id);
    void add(const ShareSession &session, const QString &password = QString());
    void setStatus(const QString &sessionId, const QString &status);
    void addRoot(const QString &sessionId, const QString &rootId, const QString &localPath,
                 const QString &displayName = QString());

    int port() const { return m_server->serverPort(); }
    HttpReply request(const QByteArray &bytes) const;
    HttpReply get(const QByteArray &target, const QByteArray &headerLines = QByteArray()) const;
    /// The log of a session as "action detail", oldest first.
    QStringList log(const QString &sessionId) const;

    FileShareServer &server() { return *m_server; }
    FileShareServerContext &context() { return *m_server->context(); }
    ShareTimeLimits &limits() { return context().limits; }
    FileShareController *controller() { return m_controller.data(); }
    /// As at the program's end, while workers may still run.
    void dropController() { m_controller.reset(); }
    TempTree &tree() { return m_tree; }

private:
    TempTree m_tree;
    FileShareDb m_db;
    QScopedPointer<FileShareController> m_controller;
    QScopedPointer<FileShareServer> m_server;
};
