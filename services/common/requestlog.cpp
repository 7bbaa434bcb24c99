#include "common/requestlog.h"

#include <cstdio>

namespace services {

namespace {

/// Longer than a UUID and any method.
constexpr int kMaxWordLength = 64;
/// Reasons may repeat what a client has sent.
constexpr int kMaxReasonLength = 200;

/// A client's word, so that it cannot write lines of its own.
QByteArray printable(const QString &word)
{
    QByteArray result;
    for (const QChar letter : word.left(kMaxWordLength)) {
        const char latin = letter.toLatin1();
        result += latin > ' ' && latin <= '~' ? latin : '?';
    }
    return result;
}

} // namespace

QByteArray requestLogLine(const AnsweredRequest &request, qint64 elapsedMs)
{
    QByteArray line = request.reply.success ? "<7>" : "<5>";
    line += "request " + printable(request.requestId) + ' ' + printable(request.method) + " uid " +
            QByteArray::number(quint32(request.peer.uid)) + " pid " +
            QByteArray::number(int(request.peer.pid)) + ": ";
    if (request.reply.success)
        line += "done";
    else
        line += "failed, " + QByteArray::number(request.reply.errorCode) + ' ' +
                request.reply.errorMessage.left(kMaxReasonLength).simplified().toUtf8();
    return line + ", " + QByteArray::number(elapsedMs) + " ms\n";
}

void logRequestsToJournal(ServiceHost *host)
{
    if (!qEnvironmentVariableIsSet("JOURNAL_STREAM"))
        return;
    QObject::connect(host, &ServiceHost::requestAnswered, host,
                     [](const AnsweredRequest &request, qint64 elapsedMs) {
                         std::fputs(requestLogLine(request, elapsedMs).constData(), stderr);
                     });
}

} // namespace services
