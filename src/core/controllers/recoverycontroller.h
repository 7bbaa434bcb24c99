#pragma once

#include "core/controllers/servicecontroller.h"

#include <QJsonArray>
#include <QStringList>

#include <memory>

namespace core {
namespace controllers {

/// Everything of the recovery service that is not a scan: recovery tasks, restores from a vault
/// location, the stored sessions. Tasks and sessions live in the service; every controller hears
/// every event, and consumers compare the id with their own.
class RecoveryController : public ServiceController
{
    Q_OBJECT

public:
    explicit RecoveryController(ipc::IpcClient *client, QObject *parent = nullptr);

    /// Ends in recoveryStarted(), or in recoveryError() with an empty id.
    void startRecovery(const QJsonObject &params);
    /// Ends in stopResult(); that the task has stopped comes later as recoveryStopped().
    void stopRecovery(const QString &recoveryId);

    /// Ends in vaultRestoreStarted() or vaultRestoreError().
    void restoreVaultFiles(const QString &vaultPartition, const QStringList &fileIds,
                           const QString &targetDir, const QString &conflictPolicy);
    /// Ends in vaultLocationsReceived(), with no locations and a message on failure.
    void fetchVaultLocations();

    /// The queries end in the signal of their answer; one that fails ends in queryFailed() instead.
    /// Without a client they do nothing.
    void fetchSessionList(int limit, int offset);
    void fetchSessionDetail(const QString &sessionId);
    /// The list comes in pages, but is reported as a whole.
    void fetchSessionFiles(const QString &sessionId);
    void fetchRecoveryTaskDetail(const QString &recoveryId);
    /// Ends in sessionDeleted(); without a client it does nothing.
    void deleteSession(const QString &sessionId);

    /// The task that the last successful start made.
    QString currentRecoveryId() const { return m_currentRecoveryId; }

signals:
    void recoveryStarted(const QString &recoveryId);
    /// `progress` in percent.
    void recoveryProgress(const QString &recoveryId, double progress, int processed, int total);
    void recoveryFileStatus(const QString &recoveryId, const QString &fileId, const QString &status,
                            const QString &detail, const QStringList &timeline);
    void recoveryCompleted(const QString &recoveryId, const QJsonObject &summary);
    void recoveryError(const QString &recoveryId, const QString &message);
    void recoveryStopped(const QString &recoveryId);
    void stopResult(const QString &recoveryId, bool success, const QString &message);

    void vaultRestoreStarted(const QString &taskId);
    void vaultRestoreError(const QString &message);
    void vaultLocationsReceived(const QJsonArray &locations, bool targetMounted,
                                const QString &message);
    void vaultFileRestored(const QString &taskId, const QString &fileId,
                           const QString &originalPath, const QString &status,
                           const QString &error);
    void vaultRestoreCompleted(const QString &taskId, int total, int succeeded, int failed,
                               int skipped, qint64 totalBytes);

    void sessionListReceived(const QJsonArray &sessions);
    void sessionDetailReceived(const QString &sessionId, const QJsonObject &detail);
    void sessionFilesReceived(const QString &sessionId, const QJsonArray &files);
    void recoveryTaskDetailReceived(const QString &recoveryId, const QJsonObject &detail);
    void sessionDeleted(const QString &sessionId, bool success);

private slots:
    void onEventReceived(const QString &eventName, const QJsonObject &data);

private:
    /// Asks for the page behind `files`, which grow until all are there.
    void fetchFilesBehind(const QString &sessionId, const std::shared_ptr<QJsonArray> &files);
    void onTaskEvent(const QString &event, const QJsonObject &data);
    void onVaultEvent(const QString &event, const QJsonObject &data);

    QString m_currentRecoveryId;
};

} // namespace controllers
} // namespace core
