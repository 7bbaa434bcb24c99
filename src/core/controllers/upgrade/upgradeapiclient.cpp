#include "core/controllers/upgrade/upgradeapiclient.h"

#include "core/deployment.h"

#include <QDateTime>
#include <QDebug>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>

namespace core {
namespace controllers {
namespace upgrade {

namespace {

QString requestFailedText()
{
    return QStringLiteral("Upgrade request failed");
}

QString messageOf(const QJsonObject &body)
{
    return body.value(QLatin1String("message")).toString();
}

/// A text without the queries of URLs in it, which are signed and name the device.
QString withoutQuery(QString text)
{
    static const QRegularExpression query(QStringLiteral("\\?[^\\s\"]*"));
    return text.remove(query);
}

/// The network's own text. It names the URL in a readable form, in which a query may hold blanks.
QString networkErrorText(const QNetworkReply *reply)
{
    const QUrl url = reply->url();
    QString text = reply->errorString();
    text.replace(url.toString(), url.toString(QUrl::RemoveQuery));
    return withoutQuery(text);
}

QString reasonFor(int networkError, int httpStatus)
{
    if (httpStatus >= 300)
        return QStringLiteral("更新服务器返回了错误（HTTP %1）。").arg(httpStatus);
    switch (networkError) {
    case QNetworkReply::ConnectionRefusedError:
    case QNetworkReply::HostNotFoundError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
    case QNetworkReply::UnknownNetworkError:
        return QStringLiteral("无法连接更新服务器，请检查网络。");
    case QNetworkReply::TimeoutError:
        return QStringLiteral("连接更新服务器超时，请稍后重试。");
    case QNetworkReply::RemoteHostClosedError:
        return QStringLiteral("与更新服务器的连接中断，请稍后重试。");
    case QNetworkReply::SslHandshakeFailedError:
        return QStringLiteral("无法与更新服务器建立安全连接，请检查系统时间和网络。");
    default:
        return QStringLiteral("检查更新失败。");
    }
}

/// What the server says is shown as one short line.
QString reasonFrom(const QString &serverMessage, const QString &fallback)
{
    constexpr int kMaxLength = 200;
    const QString words = withoutQuery(serverMessage.simplified()).left(kMaxLength);
    return words.isEmpty() ? fallback : words;
}

} // namespace

bool UpgradeApiClient::ApiError::isEmpty() const
{
    return httpStatus == 0 && networkError == 0 && code.isEmpty() && message.isEmpty();
}

UpgradeApiClient::UpgradeApiClient(QObject *parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
    , m_baseUrl(loadConfiguredBaseUrl())
{}

QUrl UpgradeApiClient::defaultBaseUrl()
{
    return deployment::updateServerUrl();
}

QUrl UpgradeApiClient::loadConfiguredBaseUrl()
{
    return defaultBaseUrl();
}

void UpgradeApiClient::reloadSettings()
{
    m_baseUrl = loadConfiguredBaseUrl();
}

void UpgradeApiClient::checkForUpdate(const QString &currentVersion, const QString &arch,
                                      const QString &mode, const QString &fingerprint,
                                      const QString &osInfo, const QString &cpuModel,
                                      const Callback &callback)
{
    const ApiParams params{{QStringLiteral("product"), QStringLiteral("morvane")},
                           {QStringLiteral("currentVersion"), currentVersion.trimmed()},
                           {QStringLiteral("arch"), arch.trimmed()},
                           {QStringLiteral("mode"), mode.trimmed()},
                           {QStringLiteral("fingerprint"), fingerprint.trimmed()},
                           {QStringLiteral("osInfo"), osInfo.trimmed()},
                           {QStringLiteral("cpuModel"), cpuModel.trimmed()}};
    sendGet(QStringLiteral("/api/version/latest"), params, callback);
}

void UpgradeApiClient::sendGet(const QString &path, ApiParams params, const Callback &callback)
{
    params.insert(QStringLiteral("ts"), QString::number(QDateTime::currentMSecsSinceEpoch()));
    params.insert(QStringLiteral("sign"), signRequest(params, deployment::updateClientSecret()));
    QString shown = requestUrl(m_baseUrl, path, redacted(params)).toString();
    shown.replace(QLatin1String("%3Credacted%3E"), QLatin1String("<redacted>"));
    qInfo().noquote() << QStringLiteral("Upgrade GET request: path=%1 url=%2").arg(path, shown);

    QNetworkRequest request(requestUrl(m_baseUrl, path, params));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    QNetworkReply *reply = m_network->get(request);
    connect(reply, &QNetworkReply::finished, this, [this, reply, path, callback] {
        reply->deleteLater();
        handleReply(reply, path, callback);
    });
}

void UpgradeApiClient::handleReply(QNetworkReply *reply, const QString &path,
                                   const Callback &callback)
{
    ApiError error;
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid())
        error.httpStatus = status.toInt();
    const QJsonObject body = QJsonDocument::fromJson(reply->readAll()).object();
    const QString code = backendCodeString(body);
    qInfo().noquote() << QStringLiteral("Upgrade GET response: path=%1 http=%2 network=%3 body=%4")
                             .arg(path, QString::number(error.httpStatus),
                                  QString::number(reply->error()),
                                  QString::fromUtf8(
                                      QJsonDocument(body).toJson(QJsonDocument::Compact)));

    if (reply->error() != QNetworkReply::NoError) {
        error.networkError = reply->error();
        error.code = code;
        const QString message = messageOf(body);
        error.message = message.isEmpty() ? reply->errorString() : message;
        error.reason = reasonFrom(message, reasonFor(error.networkError, error.httpStatus));
        qWarning().noquote() << QStringLiteral("Upgrade GET failed: path=%1 error=%2")
                                    .arg(path, networkErrorText(reply));
        callback(false, QJsonObject(), error);
        return;
    }
    // A redirect is not followed: what answers is not the update server but a log-in page.
    if (error.httpStatus > 299) {
        error.message = requestFailedText();
        error.reason = reasonFor(0, error.httpStatus);
        callback(false, unwrapResponseObject(body), error);
        return;
    }
    if (!code.isEmpty() && code != QLatin1String("200") && code != QLatin1String("0")) {
        error.code = code;
        const QString message = messageOf(body);
        error.message = message.isEmpty() ? requestFailedText() : message;
        error.reason =
            reasonFrom(message, QStringLiteral("更新服务器拒绝了请求（代码 %1）。").arg(code));
        callback(false, unwrapResponseObject(body), error);
        return;
    }
    callback(true, unwrapResponseObject(body), ApiError());
}

} // namespace upgrade
} // namespace controllers
} // namespace core
