#include "share/connection.h"

#include "share/httprequest.h"
#include "share/peersocket.h"
#include "share/requestparser.h"
#include "share/responses.h"
#include "share/sessiongate.h"
#include "share/shareexchange.h"
#include "share/threadconnection.h"

#include <QElapsedTimer>

#include <unistd.h>

namespace share {

namespace {

constexpr int kHeaderStep = 8192;
constexpr int kMaxHeader = 65536;
constexpr int kMaxForm = 65536;
const char kTerminator[] = "\r\n\r\n";
constexpr int kTerminatorSize = 4;

enum class HeaderResult { Complete, TooLarge, None };

int leftOf(int limitMs, const QElapsedTimer &clock)
{
    return static_cast<int>(qMax<qint64>(0, limitMs - clock.elapsed()));
}

/// One limit for the whole header: a client that sends a byte now and then gains nothing.
HeaderResult readHeader(PeerSocket *socket, int limitMs, QByteArray *buffer, int *headerSize)
{
    QElapsedTimer clock;
    clock.start();
    char step[kHeaderStep];
    for (;;) {
        int count = 0;
        if (socket->read(step, kHeaderStep, leftOf(limitMs, clock),
                         PeerSocket::Waiting::FirstHeader, &count) != PeerSocket::Outcome::Done)
            return HeaderResult::None;
        const int searched = qMax(0, buffer->size() - (kTerminatorSize - 1));
        buffer->append(step, count);
        if (buffer->size() > kMaxHeader)
            return HeaderResult::TooLarge;
        const int end = buffer->indexOf(kTerminator, searched);
        if (end >= 0) {
            *headerSize = end + kTerminatorSize;
            return HeaderResult::Complete;
        }
        if (leftOf(limitMs, clock) == 0)
            return HeaderResult::None;
    }
}

/// An upload streams its body itself; beside that only the small body of a form is read.
void readForm(PeerSocket *socket, int limitMs, HttpRequest *request)
{
    if (request->method != QLatin1String("POST") || request->contentLength < 1 ||
        request->contentLength > kMaxForm)
        return;
    QElapsedTimer clock;
    clock.start();
    const int size = static_cast<int>(request->contentLength);
    char step[kHeaderStep];
    while (request->body.size() < size) {
        int count = 0;
        if (socket->read(step, kHeaderStep, leftOf(limitMs, clock), PeerSocket::Waiting::Stoppable,
                         &count) != PeerSocket::Outcome::Done)
            break;
        request->body.append(step, count);
    }
    request->body.truncate(size);
}

void route(const ShareContextPtr &context, PeerSocket *socket, HttpRequest *request)
{
    const QString prefix = QStringLiteral("/s/");
    if (!request->path.startsWith(prefix)) {
        sendError(socket, 404, QStringLiteral("未找到"), QStringLiteral("未找到资源。"));
        return;
    }
    const ThreadConnection::Use connection(context->dbPath);
    if (!connection.isValid()) {
        sendError(socket, 500, QStringLiteral("内部错误"), QStringLiteral("数据库连接失败。"));
        return;
    }
    const QString rest = request->path.mid(prefix.size());
    const int slash = rest.indexOf(QLatin1Char('/'));
    ShareExchange exchange{context,
                           connection.database(),
                           socket,
                           request,
                           rest.left(slash),
                           slash < 0 ? QString() : rest.mid(slash + 1),
                           socket->peerAddress()};
    handleSessionRequest(&exchange);
}

} // namespace

void handleConnectionStatic(const ShareContextPtr &context, qintptr descriptor)
{
    if (context->isShuttingDown()) {
        ::close(static_cast<int>(descriptor));
        return;
    }
    PeerSocket socket(context);
    if (!socket.adopt(descriptor))
        return;
    QByteArray buffer;
    int headerSize = 0;
    switch (readHeader(&socket, context->limits.headerMs, &buffer, &headerSize)) {
    case HeaderResult::None:
        socket.finish(false);
        return;
    case HeaderResult::TooLarge:
        sendError(&socket, 431, QStringLiteral("请求头过大"),
                  QStringLiteral("请求头超过允许大小。"));
        socket.finish(true);
        return;
    case HeaderResult::Complete:
        break;
    }
    HttpRequest request = parseRequest(buffer.left(headerSize));
    request.body = buffer.mid(headerSize);
    buffer.clear();
    readForm(&socket, context->limits.formMs, &request);
    route(context, &socket, &request);
    const bool isUnread = socket.received() - headerSize < request.contentLength;
    socket.finish(isUnread || request.headers.contains(QStringLiteral("transfer-encoding")));
}

} // namespace share
