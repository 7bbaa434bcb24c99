#include "share/download.h"

#include "core/descriptor.h"
#include "share/byterange.h"
#include "share/escaping.h"
#include "share/httprequest.h"
#include "share/peersocket.h"
#include "share/responses.h"
#include "share/sharedentry.h"
#include "share/shareexchange.h"
#include "share/sharepaths.h"

#include <QUrl>

#include <cerrno>
#include <unistd.h>

namespace share {

namespace {

constexpr int kBlock = 65536;
/// Bytes between two looks at the shutdown.
constexpr qint64 kStep = 1048576;
constexpr int kWithoutEnd = -1;

QByteArray downloadHeader(const QString &fileName, const ByteRange &range, qint64 total)
{
    QByteArray out = range.isPartial ? "HTTP/1.1 206 Partial Content\r\n" : "HTTP/1.1 200 OK\r\n";
    out += "Content-Type: " + mimeTypeForFile(fileName).toLatin1() + "\r\n";
    out += "Content-Length: " + QByteArray::number(range.length) + "\r\n";
    out += "Content-Disposition: attachment; filename=\"" + headerFileName(fileName).toUtf8() +
           "\"; filename*=UTF-8''" + QUrl::toPercentEncoding(fileName) + "\r\n";
    out += "Accept-Ranges: bytes\r\n";
    if (range.isPartial)
        out += "Content-Range: bytes " + QByteArray::number(range.start) + '-' +
               QByteArray::number(range.end) + '/' + QByteArray::number(total) + "\r\n";
    out += "Connection: close\r\n\r\n";
    return out;
}

/// By way of this program. A reader that stalls has one block queued.
void copyContent(const ShareExchange &exchange, int descriptor, qint64 remaining)
{
    char block[kBlock];
    while (remaining > 0 && !exchange.context->isShuttingDown()) {
        const ssize_t got =
            ::read(descriptor, block, static_cast<size_t>(qMin<qint64>(kBlock, remaining)));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 1)
            return;
        if (exchange.socket->write(block, got, kWithoutEnd, PeerSocket::Waiting::Stoppable) !=
            PeerSocket::Outcome::Done)
            return;
        remaining -= got;
    }
}

/// A reader that stalls is waited for without end, unless too many are; it has no pool slot.
void sendContent(const ShareExchange &exchange, int descriptor, qint64 remaining)
{
    while (remaining > 0 && !exchange.context->isShuttingDown()) {
        qint64 sent = 0;
        const PeerSocket::Outcome outcome = exchange.socket->sendFile(
            descriptor, qMin(kStep, remaining), kWithoutEnd, PeerSocket::Waiting::Stoppable, &sent);
        if (outcome == PeerSocket::Outcome::Unsupported)
            return copyContent(exchange, descriptor, remaining);
        if (outcome != PeerSocket::Outcome::Done || sent == 0)
            return;
        remaining -= sent;
    }
}

} // namespace

void serveFileDownload(const ShareExchange &exchange, const SharedEntry &entry,
                       const QString &fileName)
{
    const core::Descriptor file(entry.openForReading());
    if (!file.isOpen()) {
        sendError(exchange.socket, 500, QStringLiteral("错误"), QStringLiteral("无法打开文件。"));
        return;
    }
    const qint64 total = entry.size();
    const ByteRange range =
        rangeFor(exchange.request->headers.value(QStringLiteral("range")), total);
    const QByteArray header = downloadHeader(fileName, range, total);
    const PeerSocket::Outcome written = exchange.socket->write(
        header.constData(), header.size(), exchange.context->limits.responseWriteMs,
        PeerSocket::Waiting::Stoppable, range.length > 0);
    if (written == PeerSocket::Outcome::Done) {
        // A start before the file's beginning is refused here, and the file sent from there.
        ::lseek(file.get(), range.start, SEEK_SET);
        sendContent(exchange, file.get(), range.length);
    }
    exchange.log(QStringLiteral("download"), fileName);
}

} // namespace share
