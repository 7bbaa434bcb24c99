#include "share/download.h"

#include "share/byterange.h"
#include "share/escaping.h"
#include "share/httprequest.h"
#include "share/peersocket.h"
#include "share/responses.h"
#include "share/shareexchange.h"
#include "share/sharepaths.h"

#include <QFile>
#include <QUrl>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace share {

namespace {

constexpr int kBlock = 65536;

class FileDescriptor
{
public:
    explicit FileDescriptor(int descriptor)
        : m_descriptor(descriptor)
    {}
    ~FileDescriptor()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;

    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// The size of an open regular file, else -1. Without blocking, should it have become a pipe since
/// it was looked at.
int openForReading(const QString &filePath, qint64 *size)
{
    const int descriptor = ::open(QFile::encodeName(filePath).constData(),
                                  O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    struct stat status;
    if (descriptor < 0)
        return -1;
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor);
        return -1;
    }
    *size = status.st_size;
    return descriptor;
}

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

/// A reader that stalls is waited for without end, unless too many are; it has one block queued and
/// no pool slot.
void sendContent(const ShareExchange &exchange, int descriptor, qint64 remaining)
{
    constexpr int kWithoutEnd = -1;
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

} // namespace

void serveFileDownload(const ShareExchange &exchange, const QString &filePath,
                       const QString &fileName)
{
    qint64 total = 0;
    const FileDescriptor file(openForReading(filePath, &total));
    if (file.get() < 0) {
        sendError(exchange.socket, 500, QStringLiteral("错误"), QStringLiteral("无法打开文件。"));
        return;
    }
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
