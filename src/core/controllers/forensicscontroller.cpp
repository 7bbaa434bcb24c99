#include "core/controllers/forensicscontroller.h"

#include "core/ipc/ipcclient.h"

namespace core {
namespace controllers {

ForensicsController::ForensicsController(ipc::IpcClient *client, QObject *parent)
    : ServiceController(client, parent)
{}

void ForensicsController::registerFile(const QString &filePath)
{
    run(QStringLiteral("debug.registerFile"), {{QStringLiteral("filePath"), filePath}},
        &ForensicsController::registerResult);
}

void ForensicsController::verify(const QString &snapshotId, const QString &note)
{
    run(QStringLiteral("debug.verify"),
        {{QStringLiteral("snapshotId"), snapshotId}, {QStringLiteral("note"), note}},
        &ForensicsController::verifyResult);
}

void ForensicsController::recoverFile(const QString &snapshotId, const QString &outputDir)
{
    run(QStringLiteral("debug.recoverFile"),
        {{QStringLiteral("snapshotId"), snapshotId}, {QStringLiteral("outputDir"), outputDir}},
        &ForensicsController::recoverFileResult);
}

void ForensicsController::listSnapshots()
{
    query(QStringLiteral("debug.listSnapshots"), QJsonObject(), QString(),
          [this](const QJsonObject &data) {
              emit snapshotsListed(data.value(QLatin1String("snapshots")).toArray());
          });
}

void ForensicsController::getSnapshot(const QString &snapshotId)
{
    query(QStringLiteral("debug.getSnapshot"), {{QStringLiteral("snapshotId"), snapshotId}},
          snapshotId, [this](const QJsonObject &data) { emit snapshotLoaded(data); });
}

void ForensicsController::getVerification(const QString &verificationId)
{
    query(QStringLiteral("debug.getVerification"),
          {{QStringLiteral("verificationId"), verificationId}}, verificationId,
          [this](const QJsonObject &data) { emit verificationLoaded(data); });
}

void ForensicsController::deleteSnapshot(const QString &snapshotId)
{
    request(QStringLiteral("debug.deleteSnapshot"), {{QStringLiteral("snapshotId"), snapshotId}},
            [this](bool success, const QJsonObject &, const QString &) {
                emit snapshotDeleted(success);
            });
}

void ForensicsController::run(const QString &method, const QJsonObject &params, Result result)
{
    const bool sent =
        request(method, params,
                [this, result](bool success, const QJsonObject &data, const QString &message) {
                    emit(this->*result)(success, data, message);
                });
    if (!sent)
        emit(this->*result)(false, QJsonObject(), QStringLiteral("IPC not available"));
}

} // namespace controllers
} // namespace core
