#pragma once

#include "core/controllers/servicecontroller.h"

#include <QJsonArray>

namespace core {
namespace controllers {

/// Block snapshots of files in the recovery service: registering, verifying, saving what is left.
class ForensicsController : public ServiceController
{
    Q_OBJECT

public:
    explicit ForensicsController(ipc::IpcClient *client, QObject *parent = nullptr);

    /// These three end in their result signal, at once and with "IPC not available" if there is no
    /// client.
    void registerFile(const QString &filePath);
    void verify(const QString &snapshotId, const QString &note);
    void recoverFile(const QString &snapshotId, const QString &outputDir);

    /// The queries end in the signal of their answer; one that fails ends in queryFailed() instead.
    /// Without a client they do nothing.
    void listSnapshots();
    void getSnapshot(const QString &snapshotId);
    void getVerification(const QString &verificationId);
    /// Ends in snapshotDeleted(); without a client it does nothing.
    void deleteSnapshot(const QString &snapshotId);

signals:
    /// `message` is empty on success.
    void registerResult(bool success, const QJsonObject &result, const QString &message);
    void verifyResult(bool success, const QJsonObject &result, const QString &message);
    void recoverFileResult(bool success, const QJsonObject &result, const QString &message);

    void snapshotsListed(const QJsonArray &snapshots);
    void snapshotLoaded(const QJsonObject &snapshot);
    void verificationLoaded(const QJsonObject &verification);
    void snapshotDeleted(bool success);

private:
    using Result = void (ForensicsController::*)(bool, const QJsonObject &, const QString &);

    void run(const QString &method, const QJsonObject &params, Result result);
};

} // namespace controllers
} // namespace core
