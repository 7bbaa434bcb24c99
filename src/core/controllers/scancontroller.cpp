#include "core/controllers/scancontroller.h"

#include "core/ipc/ipcclient.h"
#include "core/jsonnumber.h"

namespace core {
namespace controllers {

ScanController::ScanController(ipc::IpcClient *client, QObject *parent)
    : ServiceController(client, parent)
{
    if (client)
        connect(client, &ipc::IpcClient::eventReceived, this, &ScanController::onEventReceived);
}

void ScanController::startScan(const QJsonObject &params)
{
    const bool sent =
        request(QStringLiteral("scan.start"), params,
                [this](bool success, const QJsonObject &data, const QString &message) {
                    const QString id = data.value(QLatin1String("sessionId")).toString();
                    // A session without a name could be neither followed nor stopped.
                    if (!success || id.isEmpty()) {
                        emit scanError(QString(), orElse(message, QStringLiteral("启动扫描失败")));
                        return;
                    }
                    m_currentSessionId = id;
                    emit scanStarted(id);
                });
    if (!sent)
        emit scanError(QString(), noClientMessage());
}

void ScanController::pauseScan(const QString &sessionId)
{
    command(QStringLiteral("scan.pause"), sessionId, &ScanController::pauseRequestResult);
}

void ScanController::resumeScan(const QString &sessionId)
{
    command(QStringLiteral("scan.resume"), sessionId, &ScanController::resumeRequestResult);
}

void ScanController::stopScan(const QString &sessionId)
{
    command(QStringLiteral("scan.stop"), sessionId, &ScanController::stopRequestResult);
}

void ScanController::command(const QString &method, const QString &sessionId, RequestResult result)
{
    const bool sent = request(
        method, {{QStringLiteral("sessionId"), sessionId}},
        [this, sessionId, result](bool success, const QJsonObject &, const QString &message) {
            emit(this->*result)(sessionId, success, message);
        });
    if (!sent)
        emit(this->*result)(sessionId, false, noClientMessage());
}

void ScanController::onEventReceived(const QString &eventName, const QJsonObject &data)
{
    if (!eventName.startsWith(QLatin1String("scan.")))
        return;
    const QStringRef event = eventName.midRef(5);
    const QString id = data.value(QLatin1String("sessionId")).toString();
    if (event == QLatin1String("progress")) {
        emit scanProgress(id, data.value(QLatin1String("progress")).toDouble(),
                          data.value(QLatin1String("filesFound")).toInt(),
                          toInt64(data.value(QLatin1String("elapsed"))),
                          data.value(QLatin1String("phaseText")).toString());
    } else if (event == QLatin1String("fileFound")) {
        emit filesDiscovered(id, data.value(QLatin1String("files")).toArray());
    } else if (event == QLatin1String("completed")) {
        emit scanCompleted(id, data.value(QLatin1String("summary")).toObject());
    } else if (event == QLatin1String("paused")) {
        emit scanPaused(id);
    } else if (event == QLatin1String("stopped")) {
        emit scanStopped(id);
    } else if (event == QLatin1String("error")) {
        const QJsonObject error = data.value(QLatin1String("error")).toObject();
        if (isRequestedStop(error))
            emit scanStopped(id);
        else
            emit scanError(id, messageOf(error, QStringLiteral("扫描异常")));
    }
}

} // namespace controllers
} // namespace core
