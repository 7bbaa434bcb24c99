#include "core/controllers/upgrade/packagedownload.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslError>
#include <QSslSocket>
#include <QStringList>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

constexpr qint64 kBlock = 1048576;

QString cannotWriteText()
{
    return QStringLiteral("无法写入更新包缓存文件。");
}

int statusOf(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

} // namespace

bool fileHasMd5(const QString &path, const QString &md5)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QCryptographicHash hash(QCryptographicHash::Md5);
    QByteArray block(static_cast<int>(kBlock), Qt::Uninitialized);
    qint64 got = 0;
    while ((got = file.read(block.data(), kBlock)) > 0)
        hash.addData(block.constData(), static_cast<int>(got));
    return got == 0 && hash.result().toHex() == md5.trimmed().toLower().toLatin1();
}

PackageDownload::PackageDownload(QNetworkAccessManager *network, const QUrl &url,
                                 const QString &md5, const QString &target, QObject *parent)
    : QObject(parent)
    , m_network(network)
    , m_url(url)
    , m_md5(md5.trimmed().toLower().toLatin1())
    , m_file(target)
{
    m_stall.setSingleShot(true);
}

PackageDownload::~PackageDownload()
{
    if (!m_reply)
        return;
    m_reply->disconnect(this);
    m_reply->abort();
    m_reply->deleteLater();
}

void PackageDownload::start()
{
    qInfo().noquote() << QStringLiteral("Upgrade package download start: url=%1 sslSupported=%2 "
                                        "sslBuild=%3 sslRuntime=%4")
                             .arg(m_url.toString(),
                                  QSslSocket::supportsSsl() ? QStringLiteral("true")
                                                            : QStringLiteral("false"),
                                  QSslSocket::sslLibraryBuildVersionString(),
                                  QSslSocket::sslLibraryVersionString());
    if (!openTarget()) {
        QTimer::singleShot(0, this, [this] { end(cannotWriteText()); });
        return;
    }
    QNetworkRequest request(m_url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    m_reply = m_network->get(request);
    connect(m_reply, &QNetworkReply::downloadProgress, this, &PackageDownload::progress);
    connect(m_reply, &QNetworkReply::readyRead, this, &PackageDownload::takeBytes);
    connect(m_reply, &QNetworkReply::sslErrors, this, [this](const QList<QSslError> &errors) {
        QStringList texts;
        for (const QSslError &error : errors)
            texts.append(error.errorString());
        qWarning().noquote() << QStringLiteral("Upgrade package sslErrors: url=%1 errors=%2")
                                    .arg(m_url.toString(), texts.join(QStringLiteral(" | ")));
    });
    connect(m_reply, &QNetworkReply::finished, this, &PackageDownload::onReplyFinished);
    connect(&m_stall, &QTimer::timeout, m_reply, &QNetworkReply::abort);
    restartStallClock();
}

void PackageDownload::restartStallClock()
{
    if (m_stall.interval() > 0)
        m_stall.start();
}

bool PackageDownload::openTarget()
{
    return QDir().mkpath(QFileInfo(m_file.fileName()).absolutePath()) &&
           m_file.open(QIODevice::WriteOnly);
}

void PackageDownload::takeBytes()
{
    restartStallClock();
    const QByteArray bytes = m_reply->readAll();
    m_received += bytes.size();
    if (m_writeFailed)
        return;
    m_hash.addData(bytes);
    if (m_file.write(bytes) != bytes.size()) {
        m_writeFailed = true;
        // Ends in onReplyFinished(), but not inside this signal.
        QTimer::singleShot(0, m_reply, &QNetworkReply::abort);
    }
}

void PackageDownload::onReplyFinished()
{
    takeBytes();
    m_stall.stop();
    qInfo().noquote()
        << QStringLiteral("Upgrade package download finished: url=%1 http=%2 network=%3 bytes=%4")
               .arg(m_url.toString(), QString::number(statusOf(m_reply)),
                    QString::number(m_reply->error()), QString::number(m_received));
    end(conclude());
}

QString PackageDownload::conclude()
{
    if (m_writeFailed)
        return cannotWriteText();
    const int status = statusOf(m_reply);
    // Other schemes than HTTP have no status.
    const bool failedStatus = status != 0 && (status < 200 || status > 299);
    if (m_reply->error() != QNetworkReply::NoError || failedStatus) {
        qWarning().noquote()
            << QStringLiteral("Upgrade package download failed: url=%1 http=%2 network=%3 error=%4")
                   .arg(m_url.toString(), QString::number(status),
                        QString::number(m_reply->error()), m_reply->errorString());
        return QStringLiteral("下载更新包失败。");
    }
    emit verifying();
    if (m_hash.result().toHex() != m_md5)
        return QStringLiteral("更新包校验失败，请稍后重试。");
    if (!m_file.flush() || !m_file.commit())
        return QStringLiteral("无法保存更新包缓存文件。");
    return QString();
}

void PackageDownload::end(const QString &message)
{
    m_file.cancelWriting();
    emit finished(message.isEmpty(), message);
    deleteLater();
}

} // namespace upgrade
} // namespace controllers
} // namespace core
