#include "recoveryd/forensics/forensicsservice.h"

#include "common/params.h"
#include "recoveryd/forensics/filelayout.h"
#include "recoveryd/forensics/snapshotrecovery.h"

#include <QDir>

namespace services {
namespace recoveryd {

namespace {

const QString kSnapshotId = QStringLiteral("snapshotId");

QString now()
{
    return timeText(QDateTime::currentDateTime());
}

} // namespace

ForensicsService::ForensicsService(ServiceHost &host, const DeviceCatalog &catalog,
                                   const QString &stateDir)
    : m_host(host)
    , m_catalog(catalog)
    , m_jobs(QStringLiteral("forensics"))
{
    m_store.setStateDir(stateDir);
    handle(QStringLiteral("debug.registerFile"), &ForensicsService::registerFile);
    handle(QStringLiteral("debug.verify"), &ForensicsService::verify);
    handle(QStringLiteral("debug.getSnapshot"), &ForensicsService::getSnapshot);
    handle(QStringLiteral("debug.listSnapshots"), &ForensicsService::listSnapshots);
    handle(QStringLiteral("debug.deleteSnapshot"), &ForensicsService::deleteSnapshot);
    handle(QStringLiteral("debug.getVerification"), &ForensicsService::getVerification);
    handle(QStringLiteral("debug.recoverFile"), &ForensicsService::recoverFile);
}

void ForensicsService::handle(const QString &method, Job job)
{
    m_host.handle(method,
                  [this, job](const QJsonObject &params, const ServiceHost::Respond &respond) {
                      m_jobs.run([this, job, params] { return (this->*job)(params); }, respond);
                  });
}

bool ForensicsService::load(const QJsonObject &params, Snapshot *snapshot, Volume *volume,
                            Reply *refusal) const
{
    const QString id = idParam(params, kSnapshotId);
    QString error;
    if (id.isEmpty())
        *refusal = badParam(kSnapshotId);
    else if (!m_store.load(id, snapshot, &error))
        *refusal = Reply::failure(kNotFoundCode, error);
    else if (volume && !openVolume(m_catalog, snapshot->layout, volume, &error))
        *refusal = Reply::failure(kIoCode, error);
    else
        return true;
    return false;
}

Reply ForensicsService::registerFile(const QJsonObject &params) const
{
    Snapshot snapshot;
    snapshot.filePath = textParam(params, QStringLiteral("filePath"));
    if (snapshot.filePath.isEmpty())
        return badParam(QStringLiteral("filePath"));
    QString error;
    Volume volume;
    if (!findLayout(m_catalog, snapshot.filePath, &snapshot.layout, &error) ||
        !openVolume(m_catalog, snapshot.layout, &volume, &error) ||
        !hashBlocks(volume, &snapshot, &error))
        return Reply::failure(kIoCode, error);
    snapshot.snapshotId = newId();
    snapshot.snapshotTime = now();
    if (!m_store.save(snapshot, &error))
        return Reply::failure(kIoCode, error);
    return Reply::ok(snapshot.detail());
}

Reply ForensicsService::verify(const QJsonObject &params) const
{
    Snapshot snapshot;
    Volume volume;
    Reply refusal;
    if (!load(params, &snapshot, &volume, &refusal))
        return refusal;
    Verification verification = verifyBlocks(volume, snapshot);
    verification.verificationId = newId();
    verification.verifyTime = now();
    verification.note = textParam(params, QStringLiteral("note"));
    QString error;
    if (!m_store.addVerification(snapshot.snapshotId, verification, &error))
        return Reply::failure(kIoCode, error);
    return Reply::ok(verification.toJson());
}

Reply ForensicsService::getSnapshot(const QJsonObject &params) const
{
    Snapshot snapshot;
    Reply refusal;
    if (!load(params, &snapshot, nullptr, &refusal))
        return refusal;
    QJsonObject detail = snapshot.detail();
    detail.insert(QStringLiteral("verifications"), m_store.verifications(snapshot.snapshotId));
    return Reply::ok(detail);
}

Reply ForensicsService::listSnapshots(const QJsonObject &) const
{
    QJsonArray array;
    const QVector<Snapshot> snapshots = m_store.list();
    for (const Snapshot &snapshot : snapshots)
        array.append(snapshot.summary());
    return Reply::ok({{QStringLiteral("snapshots"), array}});
}

Reply ForensicsService::deleteSnapshot(const QJsonObject &params) const
{
    const QString id = idParam(params, kSnapshotId);
    QString error;
    if (id.isEmpty())
        return badParam(kSnapshotId);
    return m_store.remove(id, &error) ? Reply::ok() : Reply::failure(kIoCode, error);
}

Reply ForensicsService::getVerification(const QJsonObject &params) const
{
    const QString id = idParam(params, QStringLiteral("verificationId"));
    QJsonObject verification;
    QString error;
    if (id.isEmpty())
        return badParam(QStringLiteral("verificationId"));
    return m_store.verification(id, &verification, &error) ? Reply::ok(verification)
                                                           : Reply::failure(kNotFoundCode, error);
}

Reply ForensicsService::recoverFile(const QJsonObject &params) const
{
    const QString outputDir = textParam(params, QStringLiteral("outputDir"));
    if (!QDir::isAbsolutePath(outputDir))
        return badParam(QStringLiteral("outputDir"));
    Snapshot snapshot;
    Volume volume;
    Reply refusal;
    if (!load(params, &snapshot, &volume, &refusal))
        return refusal;
    SnapshotRecovery result;
    QString error;
    if (!recoverSnapshot(volume, snapshot, QDir::cleanPath(outputDir), &result, &error))
        return Reply::failure(kIoCode, error);
    return Reply::ok({{QStringLiteral("outputPath"), result.outputPath},
                      {QStringLiteral("bytesWritten"), result.bytesWritten},
                      {QStringLiteral("failedBlocks"), result.failedBlocks}});
}

} // namespace recoveryd
} // namespace services
