#include "recoveryd/recover/recoveryservice.h"

#include "common/params.h"

#include <QDir>

#include <limits>

namespace services {
namespace recoveryd {

namespace {

// For directory entries and what else runs on the target; a file system filled to the last byte is
// of no use to anyone.
constexpr qint64 kSpareBytes = 1024 * 1024;

// Of a page of file statuses, and of all of them where no page is asked for.
constexpr qint64 kMaxPageBytes = 1500 * 1000;
constexpr qint64 kMaxListBytes = 256 * 1000 * 1000;

QString statusWord(const RecoveryLog::Counts &counts, bool wasStopped, const QString &error)
{
    const bool isNothingDone =
        wasStopped ? counts.succeeded == 0 : counts.failed > 0 && counts.failed == counts.total();
    if (!error.isEmpty() || isNothingDone)
        return QStringLiteral("failed");
    return wasStopped || counts.failed > 0 || counts.partial > 0
               ? QStringLiteral("completed_with_errors")
               : QStringLiteral("completed");
}

} // namespace

RecoveryService::RecoveryService(ServiceHost &host, const DeviceCatalog &catalog,
                                 const DeviceUse &use, SessionStore &store, FreeBytes freeBytes)
    : m_host(host)
    , m_catalog(catalog)
    , m_use(use)
    , m_store(store)
    , m_freeBytes(std::move(freeBytes))
    , m_jobs(QStringLiteral("recovery start"))
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
                  [this](const QJsonObject &params, const ServiceHost::Respond &respond) {
                      start(params, respond);
                  });
    m_host.handle(QStringLiteral("recovery.stop"), [this](const QJsonObject &params) {
        const QString id = idParam(params, QStringLiteral("recoveryId"));
        const auto it = m_running.find(id);
        if (it == m_running.end())
            return Reply::failure(kNotFoundCode, QStringLiteral("没有正在进行的恢复任务"));
        it->second->control->stop();
        return Reply::ok();
    });
    m_host.handle(QStringLiteral("recovery.getDetail"),
                  [this](const QJsonObject &params, const ServiceHost::Respond &respond) {
                      detail(params, respond);
                  });
}

bool RecoveryService::isInUse(const QString &sessionId) const
{
    return std::any_of(m_running.begin(), m_running.end(), [&sessionId](const auto &entry) {
        return entry.second->sessionId == sessionId;
    });
}

bool RecoveryService::parse(const QJsonObject &params, Prepared *prepared, Reply *refusal) const
{
    const auto refuse = [refusal](const Reply &reply) {
        *refusal = reply;
        return false;
    };
    const QString sessionId = idParam(params, QStringLiteral("sessionId"));
    const QString policy = textParam(params, QStringLiteral("conflictPolicy"));
    RecoveryPlan &plan = prepared->plan;
    prepared->ids = params.value(QLatin1String("fileIds")).toArray();
    plan.outputDir = QDir::cleanPath(textParam(params, QStringLiteral("outputDir")));
    if (sessionId.isEmpty())
        return refuse(badParam(QStringLiteral("sessionId")));
    if (prepared->ids.isEmpty())
        return refuse(badParam(QStringLiteral("fileIds")));
    for (const QJsonValue &id : qAsConst(prepared->ids))
        if (id.toString().isEmpty())
            return refuse(badParam(QStringLiteral("fileIds")));
    if (!QDir::isAbsolutePath(plan.outputDir))
        return refuse(badParam(QStringLiteral("outputDir")));
    if (policy != QLatin1String("rename") && policy != QLatin1String("skip"))
        return refuse(badParam(QStringLiteral("conflictPolicy")));
    plan.conflict = policy == QLatin1String("skip") ? RecoveryPlan::Conflict::Skip
                                                    : RecoveryPlan::Conflict::Rename;
    if (!m_store.contains(sessionId))
        return refuse(
            Reply::failure(kNotFoundCode, QStringLiteral("没有扫描会话 %1").arg(sessionId)));
    prepared->session = m_store.session(sessionId);
    plan.resultsPath = m_store.resultsPath(sessionId);
    return true;
}

bool RecoveryService::findFiles(const QJsonArray &ids, RecoveryPlan *plan, QString *error)
{
    ResultLog log;
    if (!openResults(plan->resultsPath, &log, error))
        return false;
    QSet<QString> seen;
    for (const QJsonValue &value : ids) {
        const QString id = value.toString();
        if (seen.contains(id))
            continue;
        seen.insert(id);
        ResultRow row;
        const int number = numberOf(id);
        if (number > 0 && log.read(number, &row)) {
            plan->numbers.append(number);
            plan->totalBytes += RecoveryTask::dataBytes(row.finding.content);
        } else {
            plan->missingIds.append(id);
        }
    }
    return true;
}

Reply RecoveryService::prepare(Prepared *prepared) const
{
    RecoveryPlan &plan = prepared->plan;
    Device device;
    QString error;
    if (!m_catalog.findAgain(prepared->session.deviceMark(), &device, &error))
        return Reply::failure(kNotFoundCode, error);
    if (m_use.isTargetOnDevice(plan.outputDir, device))
        return Reply::failure(
            kUnsupportedCode,
            QStringLiteral("输出目录位于被扫描的设备上，写入会覆盖待恢复的数据，请选择其他磁盘"));
    plan.volume = device.volume;
    if (!findFiles(prepared->ids, &plan, &error))
        return Reply::failure(kIoCode, error);
    const qint64 needed = kSpareBytes + plan.totalBytes;
    const qint64 free = m_freeBytes(plan.outputDir);
    if (free >= 0 && free < needed)
        return Reply::failure(kNoSpaceCode, QStringLiteral("目标位置空间不足：需要 %1，可用 %2")
                                                .arg(sizeText(needed), sizeText(free)));
    return Reply::ok();
}

void RecoveryService::start(const QJsonObject &params, const ServiceHost::Respond &respond)
{
    const auto prepared = std::make_shared<Prepared>();
    Reply refusal;
    if (!parse(params, prepared.get(), &refusal))
        return respond(refusal);
    m_jobs.run([this, prepared] { return prepare(prepared.get()); },
               [this, prepared, respond](const Reply &reply) {
                   respond(reply.success ? launch(*prepared) : reply);
               });
}

Reply RecoveryService::launch(const Prepared &prepared)
{
    RecoveryPlan recovery = prepared.plan;
    recovery.recoveryId = newId();
    const QDateTime now = QDateTime::currentDateTime();

    auto running = std::make_unique<Running>();
    running->control = std::make_shared<WorkControl>();
    running->sessionId = prepared.session.sessionId;
    running->record = {{QStringLiteral("recoveryId"), recovery.recoveryId},
                       {QStringLiteral("status"), QStringLiteral("running")},
                       {QStringLiteral("startedAt"), timeText(now)},
                       {QStringLiteral("startedMs"), now.toMSecsSinceEpoch()},
                       {QStringLiteral("outputDir"), recovery.outputDir}};
    QString error;
    if (!m_store.contains(running->sessionId))
        return Reply::failure(kNotFoundCode,
                              QStringLiteral("没有扫描会话 %1").arg(running->sessionId));
    if (!m_store.saveRecovery(running->sessionId,
                              fullRecord(running->record, RecoveryLog::Counts()), &error) ||
        !running->log.create(m_store.recoveryLogPath(running->sessionId, recovery.recoveryId),
                             &error))
        return Reply::failure(kIoCode, error);

    auto *const task = new RecoveryTask(recovery, running->control, m_inbox, *this);
    running->thread.start(task, QStringLiteral("recovery"));
    m_running[recovery.recoveryId] = std::move(running);
    QMetaObject::invokeMethod(task, "run", Qt::QueuedConnection);
    return Reply::ok({{QStringLiteral("recoveryId"), recovery.recoveryId}});
}

QJsonObject RecoveryService::fullRecord(QJsonObject record, const RecoveryLog::Counts &counts)
{
    record.insert(QStringLiteral("succeeded"), counts.succeeded);
    record.insert(QStringLiteral("failed"), counts.failed);
    record.insert(QStringLiteral("partial"), counts.partial);
    record.insert(QStringLiteral("skipped"), counts.skipped);
    record.insert(QStringLiteral("writtenBytes"), counts.writtenBytes);
    return record;
}

void RecoveryService::detail(const QJsonObject &params, const ServiceHost::Respond &respond)
{
    const QString id = idParam(params, QStringLiteral("recoveryId"));
    const int offset = countParam(params, QStringLiteral("offset"), 0);
    const int limit = countParam(params, QStringLiteral("limit"), std::numeric_limits<int>::max());
    for (const auto &bad : {qMakePair(QStringLiteral("recoveryId"), id.isEmpty()),
                            qMakePair(QStringLiteral("offset"), offset < 0),
                            qMakePair(QStringLiteral("limit"), limit < 0)})
        if (bad.second)
            return respond(badParam(bad.first));
    QString sessionId;
    QJsonObject record = m_store.recovery(id, &sessionId);
    const auto it = m_running.find(id);
    if (it != m_running.end())
        record = fullRecord(it->second->record, it->second->log.counts());
    if (record.isEmpty())
        return respond(Reply::failure(kNotFoundCode, QStringLiteral("没有恢复任务 %1").arg(id)));
    const QString key = QStringLiteral("fileStatuses");
    if (record.contains(key)) // of an old version
        return respond(Reply::ok(record));
    const QString path = m_store.recoveryLogPath(sessionId, id);
    const qint64 maxBytes = params.contains(QLatin1String("limit")) ? kMaxPageBytes : kMaxListBytes;
    m_jobs.run(
        [path, offset, limit, maxBytes, record, key] {
            RecoveryLog::Page page;
            QString error;
            if (!RecoveryLog::read(path, offset, limit, maxBytes, &page, &error))
                return Reply::failure(kIoCode, error);
            QJsonObject data = record;
            data.insert(key, page.statuses);
            data.insert(QStringLiteral("total"), page.total);
            return Reply::ok(data);
        },
        respond);
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
    if (result.status != QLatin1String("running")) {
        RecoveryLog &log = m_running.at(recoveryId)->log;
        QString error;
        log.append(result);
        if (!log.flush(&error))
            qWarning() << "[RecoveryService]" << error;
    }
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
    running.record.insert(QStringLiteral("status"),
                          statusWord(running.log.counts(), wasStopped, error));
    const QJsonObject record = fullRecord(running.record, running.log.counts());
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
            RecoveryLog::Page page;
            if (RecoveryLog::read(m_store.recoveryLogPath(session.sessionId, id), 0, 0, 0, &page,
                                  &error) &&
                page.total > 0)
                record = fullRecord(record, page.counts);
            if (!m_store.saveRecovery(session.sessionId, record, &error))
                qWarning() << "[RecoveryService]" << error;
        }
    }
}

} // namespace recoveryd
} // namespace services
