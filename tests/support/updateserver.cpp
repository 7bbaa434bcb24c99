#include "support/updateserver.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QSslCertificate>
#include <QSslKey>
#include <QSslSocket>
#include <QTimer>

#include <utility>

namespace testsupport {

namespace {

constexpr int kPieceGapMs = 5;

} // namespace

UpdateServer::UpdateServer(QObject *parent)
    : QTcpServer(parent)
{}

bool UpdateServer::start()
{
    return listen(QHostAddress::LocalHost);
}

void UpdateServer::useTls(const QByteArray &certificate, const QByteArray &key)
{
    m_certificate = certificate;
    m_key = key;
}

QUrl UpdateServer::url(const QString &path) const
{
    const QString scheme = m_key.isEmpty() ? QStringLiteral("http") : QStringLiteral("https");
    return QUrl(QStringLiteral("%1://127.0.0.1:%2%3").arg(scheme).arg(serverPort()).arg(path));
}

void UpdateServer::answerCheck(const QJsonObject &body, int status)
{
    Answer answer;
    answer.status = status;
    answer.body = QJsonDocument(body).toJson();
    m_answers.insert(QStringLiteral("/api/version/latest"), answer);
}

void UpdateServer::offerUpdate(const QString &packagePath, const QByteArray &package,
                               const QJsonObject &changes)
{
    const QByteArray md5 = QCryptographicHash::hash(package, QCryptographicHash::Md5).toHex();
    // In capitals, as some servers write it.
    QJsonObject offer{{QStringLiteral("latestVersion"), QStringLiteral("9.0")},
                      {QStringLiteral("updateAvailable"), true},
                      {QStringLiteral("packageUrl"), url(packagePath).toString()},
                      {QStringLiteral("packageMd5"), QString::fromLatin1(md5.toUpper())}};
    for (auto it = changes.begin(); it != changes.end(); ++it)
        offer.insert(it.key(), it.value());
    answerCheck({{QStringLiteral("code"), 200}, {QStringLiteral("data"), offer}});
}

int UpdateServer::count(const QString &path) const
{
    int count = 0;
    for (const QUrl &url : m_requests)
        count += url.path() == path ? 1 : 0;
    return count;
}

QString UpdateServer::lastQuery(const QString &path) const
{
    for (int i = m_requests.size() - 1; i >= 0; --i) {
        if (m_requests.at(i).path() == path)
            return m_requests.at(i).query(QUrl::FullyEncoded);
    }
    return QString();
}

void UpdateServer::incomingConnection(qintptr descriptor)
{
    auto *socket = new QSslSocket(this);
    socket->setSocketDescriptor(descriptor);
    connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
        if (!socket->peek(65536).contains("\r\n\r\n"))
            return;
        respond(socket, socket->readAll());
    });
    if (!m_key.isEmpty()) {
        socket->setLocalCertificate(QSslCertificate(m_certificate));
        socket->setPrivateKey(QSslKey(m_key, QSsl::Rsa));
        socket->startServerEncryption();
    }
}

void UpdateServer::respond(QTcpSocket *socket, const QByteArray &head)
{
    const QUrl target = QUrl::fromEncoded(head.split(' ').value(1));
    m_requests.append(target);
    Answer answer;
    answer.status = 404;
    answer = m_answers.value(target.path(), answer);
    QByteArray lines = "HTTP/1.1 " + QByteArray::number(answer.status) +
                       " X\r\nContent-Length: " + QByteArray::number(answer.body.size()) +
                       "\r\nConnection: close\r\n";
    for (const QByteArray &line : answer.headers)
        lines += line + "\r\n";
    socket->write(lines + "\r\n");

    const QByteArray body = answer.cutAfter < 0 ? answer.body : answer.body.left(answer.cutAfter);
    const int held = answer.holdAfter < 0 ? 0 : qMax(0, body.size() - answer.holdAfter);
    const auto sending = std::make_shared<Sending>(
        Sending{socket, body, held, qMax(1, body.size() / qMax(1, answer.pieces))});
    if (held > 0)
        m_held[target.path()].append(sending);
    sendPiece(sending);
}

void UpdateServer::release(const QString &path)
{
    const auto released = m_held.take(path);
    for (const auto &sending : released) {
        sending->held = 0;
        if (std::exchange(sending->isWaiting, false))
            sendPiece(sending);
    }
}

void UpdateServer::sendPiece(const std::shared_ptr<Sending> &sending)
{
    if (!sending->socket)
        return;
    const int length = qMin(sending->piece, sending->rest.size() - sending->held);
    if (length > 0) {
        sending->socket->write(sending->rest.left(length));
        sending->rest.remove(0, length);
        QTimer::singleShot(kPieceGapMs, sending->socket, [this, sending] { sendPiece(sending); });
    } else if (sending->held > 0) {
        sending->isWaiting = true;
    } else {
        sending->socket->disconnectFromHost(); // which writes what waits first
    }
}

} // namespace testsupport
