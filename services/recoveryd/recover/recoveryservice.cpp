#include "recoveryd/recover/recoveryservice.h"

#include "common/params.h"

#include <QDir>

namespace services {
namespace recoveryd {

namespace {

// For directory entries and what else runs on the target; a file system filled to the last byte is
// of no use to anyone.
constexpr qint64 kSpareBytes = 1024 * 1024;

int countOf(const QVector<FileResult> &results, const char *status)
{
    return int(std::count_if(results.begin(), results.end(), [status](const FileResult &result) {
        return result.status == QLatin1String(status);
    }));
}

qint64 writtenBytes(const QVector<FileResult> &results)
{
    qint64 total = 0;
    for (const FileResult &result : results)
        if (result.status == QLatin1String("success") || result.status == QLatin1String("partial"))
            total += result.writtenBytes;
    return total;
}

QString statusWord(const QVector<FileResult> &results, bool wasStopped, const QString &error)
{
    const int failed = countOf(results, "failed");
    const bool isNothingDone =
        wasStopped ? countOf(results, "success") == 0 : failed > 0 && failed == results.size();
    if (!error.isEmpty() || isNothingDone)
        return QStringLiteral("failed");
    return wasStopped || failed > 0 || countOf(results, "partial") > 0
               ? QStringLiteral("completed_with_errors")
               : QStringLiteral("completed");
}

} // namespace

RecoveryService::RecoveryService(ServiceHost &host, const DeviceCatalog &catalog,
                                 SessionStore &store, FilesOf filesOf, FreeBytes freeBytes)
    : m_host(host)
    , m_catalog(catalog)
    , m_store(store)
    , m_filesOf(std::move(filesOf))
    , m_freeBytes(std::move(freeBytes))
{
    registerMethods();
}

RecoveryService::~RecoveryService()
{
    for (const auto &entry : m_running)
        entry.second->control->stop();
}

void RecoveryService::registerMethods()
{
    m_host.handle(QStringLiteral("recovery.start"),
                  [this](const QJsonObject &params) { return start(params); });
    m_host.handle(QStringLiteral("recovery.stop"), [this](const QJsonObject &params) {
        const QString id = idParam(params, QStringLiteral("recoveryId"));
        const auto it = m_running.find(id);
        if (it == m_running.end())
            return Reply::failure(kNotFoundCode, QStringLiteral("没有正在进行的恢复任务"));
        it->second->control->stop();
        return Reply::ok();
    });
    m_host.handle(QStringLiteral("recovery.getDetail"), [this](const QJsonObject &params) {
        const QString id = idParam(params, QStringLiteral("recoveryId"));
        return id.isEmpty() ? badParam(QStringLiteral("recoveryId")) : detail(id);
    });
}

bool RecoveryService::isInUse(const QString &sessionId) const
{
    return std::any_of(m_running.begin(), m_running.end(), [&sessionId](const auto &entry) {
        return entry.second->sessionId == sessionId;
    });
}

/// Device paths are given anew at each start, so the image behind the path is compared as well.
bool RecoveryService::findVolume(const Session &session, Volume *volume, QString *error) const
{
    const QVector<Device> devices = m_catalog.devices();
    for (const Device &device : devices) {
        if (device.volume.image()->path() == session.imagePath &&
            device.volume.start() == session.volumeStart) {
            *volume = device.volume;
            return true;
        }
    }
    *error = QStringLiteral("扫描时的设备 %1 已不可用").arg(session.devicePath);
    return false;
}

bool RecoveryService::plan(const QJsonObject &params, RecoveryPlan *plan, Reply *refusal) const
{
    const auto refuse = [refusal](const Reply &reply) {
        *refusal = reply;
        return false;
    };
    const QString sessionId = idParam(params, QStringLiteral("sessionId"));
    const QJsonArray ids = params.value(QLatin1String("fileIds")).toArray();
    const QString policy = textParam(params, QStringLiteral("conflictPolicy"));
    plan->outputDir = QDir::cleanPath(textParam(params, QStringLiteral("outputDir")));
    if (sessionId.isEmpty())
        return refuse(badParam(QStringLiteral("sessionId")));
    if (ids.isEmpty())
        return refuse(badParam(QStringLiteral("fileIds")));
    if (!QDir::isAbsolutePath(plan->outputDir))
        return refuse(badParam(QStringLiteral("outputDir")));
    if (policy != QLatin1String("rename") && policy != QLatin1String("skip"))
        return refuse(badParam(QStringLiteral("conflictPolicy")));
    plan->conflict = policy == QLatin1String("skip") ? RecoveryPlan::Conflict::Skip
                                                     : RecoveryPlan::Conflict::Rename;
    if (!m_store.contains(sessionId))
        return refuse(
            Reply::failure(kNotFoundCode, QStringLiteral("没有扫描会话 %1").arg(sessionId)));

    QVector<FoundFile> all;
    QString error;
    if (!findVolume(m_store.session(sessionId), &plan->volume, &error))
        return refuse(Reply::failure(kNotFoundCode, error));
    if (!m_filesOf(sessionId, &all, &error))
        return refuse(Reply::failure(kIoCode, error));
    QHash<QString, int> places;
    for (int i = 0; i < all.size(); ++i)
        places.insert(all.at(i).fileId, i);
    QSet<QString> seen;
    qint64 needed = kSpareBytes;
    for (const QJsonValue &value : ids) {
        const QString id = value.toString();
        if (id.isEmpty())
            return refuse(badParam(QStringLiteral("fileIds")));
        if (seen.contains(id))
            continue;
        seen.insert(id);
        if (!places.contains(id)) {
            plan->missingIds.append(id);
            continue;
        }
        plan->files.append(all.at(places.value(id)));
        needed += plan->files.last().size;
    }
    const qint64 free = m_freeBytes(plan->outputDir);
    if (free >= 0 && free < needed)
        return refuse(
            Reply::failure(kNoSpaceCode, QStringLiteral("目标位置空间不足：需要 %1，可用 %2")
                                             .arg(sizeText(needed), sizeText(free))));
    return true;
}

Reply RecoveryService::start(const QJsonObject &params)
{
    RecoveryPlan recovery;
    Reply refusal;
    if (!plan(params, &recovery, &refusal))
        return refusal;
    recovery.recoveryId = newId();
    const QDateTime now = QDateTime::currentDateTime();

    auto running = std::make_unique<Running>();
    running->control = std::make_shared<WorkControl>();
    running->sessionId = textParam(params, QStringLiteral("sessionId"));
    running->record = {{QStringLiteral("recoveryId"), recovery.recoveryId},
                       {QStringLiteral("status"), QStringLiteral("running")},
                       {QStringLiteral("startedAt"), timeText(now)},
                       {QStringLiteral("startedMs"), now.toMSecsSinceEpoch()},
                       {QStringLiteral("outputDir"), recovery.outputDir}};
    QString error;
    if (!m_store.saveRecovery(running->sessionId, fullRecord(*running), &error))
        return Reply::failure(kIoCode, error);

    auto *const task = new RecoveryTask(recovery, running->control, m_inbox, *this);
    running->thread.start(task, QStringLiteral("recovery"));
    m_running[recovery.recoveryId] = std::move(running);
    QMetaObject::invokeMethod(task, "run", Qt::QueuedConnection);
    return Reply::ok({{QStringLiteral("recoveryId"), recovery.recoveryId}});
}

QJsonObject RecoveryService::fullRecord(const Running &running) const
{
    QJsonArray statuses;
    for (const FileResult &result : running.results)
        statuses.append(result.toJson());
    QJsonObject record = running.record;
    record.insert(QStringLiteral("succeeded"), countOf(running.results, "success"));
    record.insert(QStringLiteral("failed"), countOf(running.results, "failed"));
    record.insert(QStringLiteral("partial"), countOf(running.results, "partial"));
    record.insert(QStringLiteral("writtenBytes"), writtenBytes(running.results));
    record.insert(QStringLiteral("fileStatuses"), statuses);
    return record;
}

Reply RecoveryService::detail(const QString &recoveryId) const
{
    const auto it = m_running.find(recoveryId);
    const QJsonObject record =
        it != m_running.end() ? fullRecord(*it->second) : m_store.recovery(recoveryId);
    return record.isEmpty()
               ? Reply::failure(kNotFoundCode, QStringLiteral("没有恢复任务 %1").arg(recoveryId))
               : Reply::ok(record);
}

void RecoveryService::onProgress(const QString &recoveryId, double percent, int processed,
                                 int total)
{
    m_host.broadcast(QStringLiteral("recovery.progress"),
                     {{QStringLiteral("recoveryId"), recoveryId},
                      {QStringLiteral("progress"), percent},
                      {QStringLiteral("processed"), processed},
                      {QStringLiteral("total"), total}});
}

void RecoveryService::onFileStatus(const QString &recoveryId, const FileResult &result)
{
    if (result.status != QLatin1String("running"))
        m_running.at(recoveryId)->results.append(result);
    m_host.broadcast(QStringLiteral("recovery.fileStatus"),
                     {{QStringLiteral("recoveryId"), recoveryId},
                      {QStringLiteral("fileId"), result.fileId},
                      {QStringLiteral("status"), result.status},
                      {QStringLiteral("detail"), result.detail},
                      {QStringLiteral("timeline"), QJsonArray::fromStringList(result.timeline)}});
}

void RecoveryService::onFinished(const QString &recoveryId, bool wasStopped, const QString &error)
{
    Running &running = *m_running.at(recoveryId);
    running.record.insert(QStringLiteral("status"), statusWord(running.results, wasStopped, error));
    const QJsonObject record = fullRecord(running);
    QString problem;
    if (!m_store.saveRecovery(running.sessionId, record, &problem))
        qWarning() << "[RecoveryService]" << problem;
    m_running.erase(recoveryId);

    QJsonObject data{{QStringLiteral("recoveryId"), recoveryId}};
    if (!wasStopped && error.isEmpty()) {
        QJsonObject summary;
        for (const char *key : {"succeeded", "failed", "partial"})
            summary.insert(QLatin1String(key), record.value(QLatin1String(key)));
        summary.insert(QStringLiteral("totalBytesWritten"),
                       record.value(QLatin1String("writtenBytes")));
        data.insert(QStringLiteral("summary"), summary);
        m_host.broadcast(QStringLiteral("recovery.completed"), data);
        return;
    }
    data.insert(QStringLiteral("error"),
                QJsonObject{{QStringLiteral("code"), wasStopped ? kStoppedCode : kIoCode},
                            {QStringLiteral("message"),
                             wasStopped ? QStringLiteral("恢复已停止") : error}});
    m_host.broadcast(QStringLiteral("recovery.error"), data);
}

void RecoveryService::closeInterrupted()
{
    const QVector<Session> sessions = m_store.sessions();
    for (const Session &session : sessions) {
        const QVector<QJsonObject> records = m_store.recoveries(session.sessionId);
        for (QJsonObject record : records) {
            if (record.value(QLatin1String("status")).toString() != QLatin1String("running"))
                continue;
            const QString id = record.value(QLatin1String("recoveryId")).toString();
            QDir dir(record.value(QLatin1String("outputDir")).toString());
            const QString leftovers = RecoveryTask::temporaryPrefix(id) + QLatin1Char('*');
            const QStringList names =
                isId(id) ? dir.entryList({leftovers}, QDir::Files | QDir::Hidden) : QStringList();
            for (const QString &name : names)
                dir.remove(name);
            record.insert(QStringLiteral("status"), QStringLiteral("failed"));
            QString error;
            if (!m_store.saveRecovery(session.sessionId, record, &error))
                qWarning() << "[RecoveryService]" << error;
        }
    }
}

} // namespace recoveryd
} // namespace services
