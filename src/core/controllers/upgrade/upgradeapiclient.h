#pragma once

#include "core/controllers/upgrade/upgradeapi.h"

#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

class QNetworkAccessManager;
class QNetworkReply;

namespace core {
namespace controllers {
namespace upgrade {

/// Asks the update server for the latest version, by one signed GET. Shows nothing and retries
/// nothing. GUI thread, asynchronous.
class UpgradeApiClient : public QObject
{
    Q_OBJECT

public:
    struct ApiError
    {
        int httpStatus = 0;
        int networkError = 0; ///< A QNetworkReply::NetworkError.
        QString code;
        QString message; ///< The server's, or the network's own text; it may hold the whole URL.
        QString reason;  ///< For the user: the server's words or a short text; never a URL.

        bool isEmpty() const;
    };
    /// Called once; not if the client goes first. A reply without a JSON object is a success with
    /// an empty payload; a redirect is a failure.
    using Callback =
        std::function<void(bool ok, const QJsonObject &payload, const ApiError &error)>;

    explicit UpgradeApiClient(QObject *parent = nullptr);

    QUrl baseUrl() const { return m_baseUrl; }
    void setBaseUrl(const QUrl &url) { m_baseUrl = url; }
    static QUrl defaultBaseUrl();
    void reloadSettings();

    /// `mode` is "normal" or "livecd". The last three describe the device and may be empty.
    void checkForUpdate(const QString &currentVersion, const QString &arch, const QString &mode,
                        const QString &fingerprint, const QString &osInfo, const QString &cpuModel,
                        const Callback &callback);

private:
    static QUrl loadConfiguredBaseUrl();
    void sendGet(const QString &path, ApiParams params, const Callback &callback);
    void handleReply(QNetworkReply *reply, const QString &path, const Callback &callback);

    QNetworkAccessManager *m_network;
    QUrl m_baseUrl;
};

} // namespace upgrade
} // namespace controllers
} // namespace core
