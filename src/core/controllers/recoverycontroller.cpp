#include "core/controllers/recoverycontroller.h"

#include "core/ipc/ipcclient.h"
#include "core/jsonnumber.h"

namespace core {
namespace controllers {

namespace {

// The service cuts a page earlier where its frame would become too large.
constexpr int kFilesPerPage = 5000;

QStringList toStringList(const QJsonArray &array)
{
    QStringList texts;
    texts.reserve(array.size());
    for (const QJsonValue &value : array)
        texts.append(value.toString());
    return texts;
}

} // namespace

RecoveryController::RecoveryController(ipc::IpcClient *client, QObject *parent)
    : ServiceController(client, parent)
{
    if (client)
        connect(client, &ipc::IpcClient::eventReceived, this, &RecoveryController::onEventReceived);
}

void RecoveryController::startRecovery(const QJsonObject &params)
{
    const bool sent = request(
        QStringLiteral("recovery.start"), params,
        [this](bool success, const QJsonObject &data, const QString &message) {
            const QString id = data.value(QLatin1String("recoveryId")).toString();
            // A task without a name could be neither followed nor stopped.
            if (!success || id.isEmpty()) {
                emit recoveryError(QString(), orElse(message, QStringLiteral("启动恢复失败")));
                return;
            }
            m_currentRecoveryId = id;
            emit recoveryStarted(id);
        });
    if (!sent)
        emit recoveryError(QString(), noClientMessage());
}

void RecoveryController::stopRecovery(const QString &recoveryId)
{
    request(QStringLiteral("recovery.stop"), {{QStringLiteral("recoveryId"), recoveryId}},
            [this, recoveryId](bool success, const QJsonObject &, const QString &message) {
                const QString fallback = success ? QString() : QStringLiteral("停止恢复失败");
                emit stopResult(recoveryId, success, orElse(message, fallback));
            });
}

void RecoveryController::restoreVaultFiles(const QString &vaultPartition,
                                           const QStringList &fileIds, const QString &targetDir,
                                           const QString &conflictPolicy)
{
    const QJsonObject params{{QStringLiteral("vaultPartition"), vaultPartition},
                             {QStringLiteral("fileIds"), QJsonArray::fromStringList(fileIds)},
                             {QStringLiteral("targetDir"), targetDir},
                             {QStringLiteral("conflictPolicy"), conflictPolicy}};
    const bool sent = request(
        QStringLiteral("recovery.restoreVaultFiles"), params,
        [this](bool success, const QJsonObject &data, const QString &message) {
            const QString id = data.value(QLatin1String("taskId")).toString();
            if (success && !id.isEmpty())
                emit vaultRestoreStarted(id);
            else
                emit vaultRestoreError(orElse(message, QStringLiteral("启动 vault 恢复失败")));
        });
    if (!sent)
        emit vaultRestoreError(noClientMessage());
}

void RecoveryController::fetchVaultLocations()
{
    const bool sent =
        request(QStringLiteral("recovery.listVaultLocations"), QJsonObject(),
                [this](bool success, const QJsonObject &data, const QString &message) {
                    const QString fallback =
                        success ? QString() : QStringLiteral("读取受保护文件列表失败");
                    emit vaultLocationsReceived(data.value(QLatin1String("locations")).toArray(),
                                                data.value(QLatin1String("targetMounted")).toBool(),
                                                orElse(message, fallback));
                });
    if (!sent)
        emit vaultLocationsReceived(QJsonArray(), false, noClientMessage());
}

void RecoveryController::fetchSessionList(int limit, int offset)
{
    query(QStringLiteral("session.list"),
          {{QStringLiteral("limit"), limit}, {QStringLiteral("offset"), offset}}, QString(),
          [this](const QJsonObject &data) {
              emit sessionListReceived(data.value(QLatin1String("sessions")).toArray());
          });
}

void RecoveryController::fetchSessionDetail(const QString &sessionId)
{
    query(QStringLiteral("session.getDetail"), {{QStringLiteral("sessionId"), sessionId}},
          sessionId, [this, sessionId](const QJsonObject &data) {
              emit sessionDetailReceived(sessionId, data);
          });
}

void RecoveryController::fetchSessionFiles(const QString &sessionId)
{
    fetchFilesBehind(sessionId, std::make_shared<QJsonArray>());
}

void RecoveryController::fetchFilesBehind(const QString &sessionId,
                                          const std::shared_ptr<QJsonArray> &files)
{
    query(QStringLiteral("session.getFiles"),
          {{QStringLiteral("sessionId"), sessionId},
           {QStringLiteral("limit"), kFilesPerPage},
           {QStringLiteral("offset"), files->size()}},
          sessionId, [this, sessionId, files](const QJsonObject &data) {
              const QJsonArray page = data.value(QLatin1String("files")).toArray();
              for (const QJsonValue &file : page)
                  files->append(file);
              // A service that gives the whole list at once tells no total.
              const int total = data.value(QLatin1String("total")).toInt(files->size());
              if (files->size() < total && !page.isEmpty())
                  fetchFilesBehind(sessionId, files);
              else
                  emit sessionFilesReceived(sessionId, *files);
          });
}

void RecoveryController::fetchRecoveryTaskDetail(const QString &recoveryId)
{
    query(QStringLiteral("recovery.getDetail"), {{QStringLiteral("recoveryId"), recoveryId}},
          recoveryId, [this, recoveryId](const QJsonObject &data) {
              emit recoveryTaskDetailReceived(recoveryId, data);
          });
}

void RecoveryController::deleteSession(const QString &sessionId)
{
    request(QStringLiteral("session.delete"), {{QStringLiteral("sessionId"), sessionId}},
            [this, sessionId](bool success, const QJsonObject &, const QString &) {
                emit sessionDeleted(sessionId, success);
            });
}

void RecoveryController::onEventReceived(const QString &eventName, const QJsonObject &data)
{
    if (!eventName.startsWith(QLatin1String("recovery.")))
        return;
    const QString event = eventName.mid(9);
    if (event.startsWith(QLatin1String("vault")))
        onVaultEvent(event, data);
    else
        onTaskEvent(event, data);
}

void RecoveryController::onTaskEvent(const QString &event, const QJsonObject &data)
{
    const QString id = data.value(QLatin1String("recoveryId")).toString();
    if (event == QLatin1String("progress")) {
        emit recoveryProgress(id, data.value(QLatin1String("progress")).toDouble(),
                              data.value(QLatin1String("processed")).toInt(),
                              data.value(QLatin1String("total")).toInt());
    } else if (event == QLatin1String("fileStatus")) {
        emit recoveryFileStatus(id, data.value(QLatin1String("fileId")).toString(),
                                data.value(QLatin1String("status")).toString(),
                                data.value(QLatin1String("detail")).toString(),
                                toStringList(data.value(QLatin1String("timeline")).toArray()));
    } else if (event == QLatin1String("completed")) {
        emit recoveryCompleted(id, data.value(QLatin1String("summary")).toObject());
    } else if (event == QLatin1String("error")) {
        const QJsonObject error = data.value(QLatin1String("error")).toObject();
        if (isRequestedStop(error))
            emit recoveryStopped(id);
        else
            emit recoveryError(id, messageOf(error, QStringLiteral("恢复异常")));
    }
}

void RecoveryController::onVaultEvent(const QString &event, const QJsonObject &data)
{
    const QString id = data.value(QLatin1String("taskId")).toString();
    if (event == QLatin1String("vaultFileRestored")) {
        emit vaultFileRestored(id, data.value(QLatin1String("fileId")).toString(),
                               data.value(QLatin1String("originalPath")).toString(),
                               data.value(QLatin1String("status")).toString(),
                               data.value(QLatin1String("error")).toString());
    } else if (event == QLatin1String("vaultRestoreCompleted")) {
        emit vaultRestoreCompleted(id, data.value(QLatin1String("total")).toInt(),
                                   data.value(QLatin1String("succeeded")).toInt(),
                                   data.value(QLatin1String("failed")).toInt(),
                                   data.value(QLatin1String("skipped")).toInt(),
                                   toInt64(data.value(QLatin1String("totalBytes"))));
    }
}

} // namespace controllers
} // namespace core
