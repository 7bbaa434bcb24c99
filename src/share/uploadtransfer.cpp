#include "share/uploadtransfer.h"

#include "share/httprequest.h"
#include "share/peersocket.h"
#include "share/shareexchange.h"
#include "share/uploadfile.h"

#include <sys/stat.h>

namespace share {

namespace {

constexpr int kBlock = 65536;
constexpr mode_t kPrivateMode = S_IRUSR | S_IWUSR;
constexpr mode_t kNewFileMode = kPrivateMode | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;

TransferResult serverFailure(const QString &message)
{
    return {500, QStringLiteral("Internal Server Error"), message};
}

TransferResult stoppedFailure()
{
    return {503, QStringLiteral("Service Unavailable"),
            QStringLiteral("服务正在停止，请稍后重试。")};
}

TransferResult failureOf(PeerSocket::Outcome outcome)
{
    if (outcome == PeerSocket::Outcome::Stopped)
        return stoppedFailure();
    if (outcome == PeerSocket::Outcome::TimedOut || outcome == PeerSocket::Outcome::Refused)
        return {408, QStringLiteral("Request Timeout"), QStringLiteral("上传连接超时，请重试。")};
    return {400, QStringLiteral("Bad Request"), QStringLiteral("上传中断，未接收到完整文件内容。")};
}

/// Command line clients hold a body back until they hear this, or for a second.
bool askForBody(const ShareExchange &exchange)
{
    const QString expected = exchange.request->headers.value(QStringLiteral("expect"));
    if (expected.compare(QLatin1String("100-continue"), Qt::CaseInsensitive) != 0 ||
        !exchange.request->body.isEmpty())
        return true;
    return exchange.socket->writeResponse("HTTP/1.1 100 Continue\r\n\r\n");
}

TransferResult copyBody(const ShareExchange &exchange, UploadFile *file)
{
    const TransferResult writeFailure = serverFailure(QStringLiteral("写入临时文件失败。"));
    const int silenceMs = exchange.context->limits.uploadSilenceMs;
    const QByteArray &early = exchange.request->body;
    qint64 remaining = exchange.request->contentLength;
    const qint64 earlySize = qMin<qint64>(early.size(), remaining);
    if (!file->write(early.constData(), earlySize))
        return writeFailure;
    remaining -= earlySize;
    if (remaining > 0 && !askForBody(exchange))
        return failureOf(PeerSocket::Outcome::Closed);

    char block[kBlock];
    while (remaining > 0) {
        if (exchange.context->isShuttingDown())
            return stoppedFailure();
        int count = 0;
        const PeerSocket::Outcome outcome =
            exchange.socket->read(block, static_cast<int>(qMin<qint64>(kBlock, remaining)),
                                  silenceMs, PeerSocket::Waiting::Stoppable, &count);
        if (outcome != PeerSocket::Outcome::Done)
            return failureOf(outcome);
        if (!file->write(block, count))
            return writeFailure;
        remaining -= count;
    }
    return exchange.context->isShuttingDown() ? stoppedFailure() : TransferResult();
}

} // namespace

TransferResult receiveFile(const ShareExchange &exchange, int directory, const QByteArray &name,
                           const UploadTarget &target)
{
    const bool replaces = target.kind == UploadTarget::Kind::File;
    UploadFile file(directory);
    // What replaces a private file is private from its first byte on.
    if (!target.isWritable || !file.open(replaces ? kPrivateMode : kNewFileMode))
        return serverFailure(QStringLiteral("无法写入目标文件。"));
    const TransferResult copied = copyBody(exchange, &file);
    if (copied.code != 0)
        return copied;
    if (replaces)
        file.setAccessMode(target.accessMode);
    if (!file.commit(name))
        return serverFailure(QStringLiteral("保存上传文件失败。"));
    return {};
}

} // namespace share
