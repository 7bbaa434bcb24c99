#pragma once

#include "core/controllers/servicecontroller.h"

#include <QJsonArray>

namespace core {
namespace controllers {

/// Turns scan commands into requests to the recovery service, and the service's scan events into
/// signals. It holds no scan state: sessions live in the service. Every controller hears every
/// event; consumers compare the session id with their own.
class ScanController : public ServiceController
{
    Q_OBJECT

public:
    explicit ScanController(ipc::IpcClient *client, QObject *parent = nullptr);

    /// Ends in scanStarted(), or in scanError() with an empty session id.
    void startScan(const QJsonObject &params);

    /// Each ends in its result signal, which only tells whether the service took the request; the
    /// change itself comes later as an event.
    void pauseScan(const QString &sessionId);
    void resumeScan(const QString &sessionId);
    void stopScan(const QString &sessionId);

    /// The session that the last successful start made.
    QString currentSessionId() const { return m_currentSessionId; }

signals:
    void scanStarted(const QString &sessionId);
    /// `progress` in percent.
    void scanProgress(const QString &sessionId, double progress, int filesFound, qint64 elapsedMs,
                      const QString &phaseText);
    void filesDiscovered(const QString &sessionId, const QJsonArray &files);
    void scanCompleted(const QString &sessionId, const QJsonObject &summary);
    void scanError(const QString &sessionId, const QString &message);
    void scanPaused(const QString &sessionId);
    void scanStopped(const QString &sessionId);
    void pauseRequestResult(const QString &sessionId, bool success, const QString &message);
    void resumeRequestResult(const QString &sessionId, bool success, const QString &message);
    void stopRequestResult(const QString &sessionId, bool success, const QString &message);

private slots:
    void onEventReceived(const QString &eventName, const QJsonObject &data);

private:
    using RequestResult = void (ScanController::*)(const QString &, bool, const QString &);

    void command(const QString &method, const QString &sessionId, RequestResult result);

    QString m_currentSessionId;
};

} // namespace controllers
} // namespace core
