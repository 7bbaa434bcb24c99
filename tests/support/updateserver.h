#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QPointer>
#include <QString>
#include <QTcpServer>
#include <QUrl>

#include <memory>

class QSslKey;

namespace testsupport {

/// An HTTP server on loopback that answers from a script and takes notes. One request a
/// connection.
class UpdateServer : public QTcpServer
{
    Q_OBJECT

public:
    struct Answer
    {
        int status = 200;
        QByteArray body;
        QList<QByteArray> headers;
        int cutAfter = -1;  ///< Close after so many bytes of the body; -1: send all.
        int holdAfter = -1; ///< Wait for release() after so many bytes of the body; -1: never.
        int pieces = 1;     ///< Sends the body in so many parts, a moment apart.
    };

    explicit UpdateServer(QObject *parent = nullptr);

    [[nodiscard]] bool start();
    /// Speaks TLS with a certificate that nobody has signed; both files are PEM.
    void useTls(const QByteArray &certificate, const QByteArray &key);
    QUrl url(const QString &path = QString()) const;

    /// What every later request for the path gets. Unknown paths get 404.
    void answer(const QString &path, const Answer &answer) { m_answers.insert(path, answer); }
    /// The version endpoint answers with this body.
    void answerCheck(const QJsonObject &body, int status = 200);
    /// The version endpoint offers version 9.0, whose package with that content lies at the path;
    /// `changes` replace fields of the offer. What the path answers is the caller's.
    void offerUpdate(const QString &packagePath, const QByteArray &package,
                     const QJsonObject &changes = QJsonObject());

    /// Sends the rest of all answers for the path that are held.
    void release(const QString &path);

    int count(const QString &path) const;
    /// Query of the last request for the path.
    QString lastQuery(const QString &path) const;

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    struct Sending
    {
        QPointer<QTcpSocket> socket;
        QByteArray rest;
        int held; ///< Bytes at the end of `rest` that wait for release().
        int piece;
        bool isWaiting = false; ///< Nothing but release() makes it go on.
    };

    void respond(QTcpSocket *socket, const QByteArray &head);
    /// Writes a piece and comes back for the next; closes after the last.
    void sendPiece(const std::shared_ptr<Sending> &sending);

    QHash<QString, Answer> m_answers;
    QHash<QString, QList<std::shared_ptr<Sending>>> m_held;
    QList<QUrl> m_requests;
    QByteArray m_certificate;
    QByteArray m_key;
};

} // namespace testsupport
