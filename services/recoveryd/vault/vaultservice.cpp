#include "recoveryd/vault/vaultservice.h"

#include "common/outputfile.h"
#include "common/params.h"
#include "core/jsonnumber.h"
#include "core/pathutil.h"
#include "recoveryd/vault/extvault.h"
#include "recoveryd/vault/mountedvault.h"
#include "vault/vaultrecord.h"

#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QHash>

namespace services {
namespace recoveryd {

namespace {

// For directory entries and what else runs on the target.
constexpr qint64 kSpareBytes = 1024 * 1024;
// A damaged or hostile file system can make every single file cost much; what is found by then is
// what there is.
constexpr qint64 kMaxListingMs = 120 * 1000;
// Characters of all records of one answer: it has to fit into one frame.
constexpr qint64 kMaxListingText = vault::kMaxVaultText;

VaultRestoreItem itemOf(const QString &id, const QJsonObject &record)
{
    VaultRestoreItem item;
    item.fileId = id;
    item.isKnown = !record.isEmpty();
    item.originalPath = record.value(QLatin1String("originalPath")).toString();
    item.name = plainName(record.value(QLatin1String("fileName")).toString());
    const QJsonValue size = record.value(QLatin1String("fileSize"));
    item.size = size.isDouble() ? core::toInt64(size) : -1;
    return item;
}

} // namespace

VaultService::VaultService(ServiceHost &host, const DeviceCatalog &catalog,
                           const QString &mountedDir, FreeBytes freeBytes)
    : m_host(host)
    , m_catalog(catalog)
    , m_mountedDir(mountedDir)
    , m_freeBytes(std::move(freeBytes))
    , m_jobs(QStringLiteral("vaults"))
{
    m_host.handle(QStringLiteral("recovery.listVaultLocations"),
                  [this](const QJsonObject &, const ServiceHost::Respond &respond) {
                      m_jobs.run([this] { return list(); }, respond);
                  });
    m_host.handle(QStringLiteral("recovery.restoreVaultFiles"),
                  [this](const QJsonObject &params, const ServiceHost::Respond &respond) {
                      restore(params, respond);
                  });
}

VaultService::~VaultService()
{
    m_control->stop();
}

FoundVaults VaultService::findVaults() const
{
    FoundVaults vaults;
    const auto isStopped = [this] {
        return m_control->isStopped();
    };
    if (core::holdsInstalledSystem(m_mountedDir))
        vaults += vaultsBelow(m_mountedDir);
    const QVector<Device> devices = m_catalog.devices();
    for (const Device &device : devices)
        vaults += extVaultsOn(device, isStopped);
    return vaults;
}

Reply VaultService::list() const
{
    QElapsedTimer timer;
    timer.start();
    qint64 text = 0;
    const auto isEnough = [&] {
        return m_control->isStopped() || text > kMaxListingText || timer.hasExpired(kMaxListingMs);
    };
    QJsonArray locations;
    const FoundVaults vaults = findVaults();
    for (const auto &found : vaults) {
        vault::VaultLocation location = found->location();
        location.files = found->records(isEnough);
        for (const QJsonValue &record : qAsConst(location.files))
            text += vault::textSize(record.toObject());
        locations.append(location.toJson());
    }
    if (isEnough())
        qWarning() << "[VaultService] the list of protected files was cut short";
    return Reply::ok({{QStringLiteral("locations"), locations},
                      {QStringLiteral("targetMounted"), core::holdsInstalledSystem(m_mountedDir)}});
}

void VaultService::restore(const QJsonObject &params, const ServiceHost::Respond &respond)
{
    Request request;
    const auto plan = std::make_shared<VaultRestorePlan>();
    request.vaultParentDir = textParam(params, QStringLiteral("vaultPartition"));
    plan->targetDir = QDir::cleanPath(textParam(params, QStringLiteral("targetDir")));
    const QString policy = textParam(params, QStringLiteral("conflictPolicy"));
    const QJsonArray ids = params.value(QLatin1String("fileIds")).toArray();
    QSet<QString> seen;
    for (const QJsonValue &value : ids) {
        const QString id = value.toString();
        if (id.isEmpty())
            return respond(badParam(QStringLiteral("fileIds")));
        if (!seen.contains(id))
            request.fileIds.append(id);
        seen.insert(id);
    }
    if (request.vaultParentDir.isEmpty())
        return respond(badParam(QStringLiteral("vaultPartition")));
    if (request.fileIds.isEmpty())
        return respond(badParam(QStringLiteral("fileIds")));
    if (!QDir::isAbsolutePath(plan->targetDir))
        return respond(badParam(QStringLiteral("targetDir")));
    if (policy != QLatin1String("rename") && policy != QLatin1String("skip"))
        return respond(badParam(QStringLiteral("conflictPolicy")));
    if (m_isPlanning || m_running)
        return respond(
            Reply::failure(kBusyCode, QStringLiteral("已有受保护文件正在恢复，请等待其完成")));

    plan->conflict = policy == QLatin1String("skip") ? VaultRestorePlan::Conflict::Skip
                                                     : VaultRestorePlan::Conflict::Rename;
    m_isPlanning = true;
    m_jobs.run([this, request, plan] { return this->plan(request, plan.get()); },
               [this, plan, respond](const Reply &reply) {
                   m_isPlanning = false;
                   // The answer first: events name the task that it tells of.
                   respond(reply);
                   if (reply.success)
                       start(*plan);
               });
}

Reply VaultService::plan(const Request &request, VaultRestorePlan *plan) const
{
    const FoundVaults vaults = findVaults();
    const auto it = std::find_if(vaults.begin(), vaults.end(), [&request](const auto &found) {
        return found->location().vaultParentDir == request.vaultParentDir;
    });
    if (it == vaults.end())
        return Reply::failure(kNotFoundCode,
                              QStringLiteral("没有找到保护区 %1").arg(request.vaultParentDir));
    plan->vault = *it;
    QHash<QString, QJsonObject> records;
    const QJsonArray all = plan->vault->records([this] { return m_control->isStopped(); });
    for (const QJsonValue &record : all)
        records.insert(record.toObject().value(QLatin1String("id")).toString(), record.toObject());

    qint64 needed = kSpareBytes;
    for (const QString &id : request.fileIds) {
        plan->items.append(itemOf(id, records.value(id)));
        QString error;
        const auto content = plan->items.last().isKnown ? plan->vault->open(id, &error) : nullptr;
        if (content)
            needed += totalLength(content->dataRanges());
    }
    const qint64 free = m_freeBytes(plan->targetDir);
    if (free >= 0 && free < needed)
        return Reply::failure(kNoSpaceCode, QStringLiteral("目标位置空间不足：需要 %1，可用 %2")
                                                .arg(sizeText(needed), sizeText(free)));
    if (!makeOutputPath(plan->targetDir))
        return Reply::failure(kIoCode, QStringLiteral("无法创建目录 %1").arg(plan->targetDir));
    plan->taskId = newId();
    return Reply::ok({{QStringLiteral("taskId"), plan->taskId}});
}

void VaultService::start(const VaultRestorePlan &plan)
{
    m_running = std::make_unique<Running>();
    m_running->taskId = plan.taskId;
    m_running->total = plan.items.size();
    auto *const task = new VaultRestoreTask(plan, m_control, m_inbox, *this);
    m_running->thread.start(task, QStringLiteral("vault-restore"));
    QMetaObject::invokeMethod(task, "run", Qt::QueuedConnection);
}

void VaultService::onVaultFileRestored(const QString &taskId, const VaultRestoreResult &result)
{
    if (result.status == QLatin1String("succeeded"))
        ++m_running->succeeded;
    else if (result.status == QLatin1String("skipped"))
        ++m_running->skipped;
    else
        ++m_running->failed;
    m_running->writtenBytes += result.writtenBytes;
    m_host.broadcast(QStringLiteral("recovery.vaultFileRestored"),
                     {{QStringLiteral("taskId"), taskId},
                      {QStringLiteral("fileId"), result.fileId},
                      {QStringLiteral("originalPath"), result.originalPath},
                      {QStringLiteral("status"), result.status},
                      {QStringLiteral("error"), result.error}});
}

void VaultService::onVaultRestoreFinished(const QString &taskId)
{
    const std::unique_ptr<Running> done = std::move(m_running);
    m_host.broadcast(QStringLiteral("recovery.vaultRestoreCompleted"),
                     {{QStringLiteral("taskId"), taskId},
                      {QStringLiteral("total"), done->total},
                      {QStringLiteral("succeeded"), done->succeeded},
                      {QStringLiteral("failed"), done->failed},
                      {QStringLiteral("skipped"), done->skipped},
                      {QStringLiteral("totalBytes"), done->writtenBytes}});
}

} // namespace recoveryd
} // namespace services
