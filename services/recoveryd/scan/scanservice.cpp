#include "recoveryd/scan/scanservice.h"

#include "common/params.h"

#include <QDateTime>

namespace services {
namespace recoveryd {

namespace {

const QString kResumeSessionId = QStringLiteral("resumeSessionId");

QJsonObject sessionData(const QString &sessionId)
{
    return {{QStringLiteral("sessionId"), sessionId}};
}

QString statusWord(ScanOutcome::Kind kind)
{
    switch (kind) {
    case ScanOutcome::Kind::Completed:
        return QStringLiteral("completed");
    case ScanOutcome::Kind::Stopped:
        return QStringLiteral("stopped");
    case ScanOutcome::Kind::Interrupted:
        return QStringLiteral("interrupted");
    case ScanOutcome::Kind::Failed:
        break;
    }
    return QStringLiteral("failed");
}

QJsonObject summaryOf(const ScanOutcome &outcome)
{
    return {{QStringLiteral("filesFound"), outcome.filesFound},
            {QStringLiteral("elapsedMs"), outcome.elapsedMs},
            {QStringLiteral("scannedBytes"), outcome.scannedBytes},
            {QStringLiteral("unreadableBytes"), outcome.unreadableBytes},
            {QStringLiteral("notes"), QJsonArray::fromStringList(outcome.notes)}};
}

} // namespace

ScanService::ScanService(ServiceHost &host, const DeviceCatalog &catalog, const DeviceUse &use,
                         SessionStore &store)
    : m_host(host)
    , m_catalog(catalog)
    , m_use(use)
    , m_store(store)
    , m_jobs(QStringLiteral("scan start"))
{
    using Tell = std::function<void(WorkControl &)>;
    m_host.handle(QStringLiteral("scan.start"),
                  [this](const QJsonObject &params, const ServiceHost::Respond &respond) {
                      start(params, respond);
                  });
    const QVector<QPair<QString, Tell>> controls = {
        {QStringLiteral("scan.pause"),
         [](WorkControl &control) {
             control.pause();
         }},
        {QStringLiteral("scan.resume"),
         [](WorkControl &control) {
             control.resume();
         }},
        {QStringLiteral("scan.stop"), [](WorkControl &control) {
             control.stop();
         }}};
    for (const auto &entry : controls) {
        const Tell tell = entry.second;
        m_host.handle(entry.first, [this, tell](const QJsonObject &params) {
            return withRunning(params, tell);
        });
    }
}

ScanService::~ScanService()
{
    for (const auto &entry : m_running)
        entry.second->control->stop();
}

void ScanService::start(const QJsonObject &params, const ServiceHost::Respond &respond)
{
    const auto prepared = std::make_shared<Prepared>();
    prepared->params = params;
    prepared->isResumed = params.contains(kResumeSessionId);
    if (prepared->isResumed) {
        const QString id = idParam(params, kResumeSessionId);
        if (id.isEmpty() || !m_store.contains(id))
            return respond(
                Reply::failure(kNotFoundCode, QStringLiteral("没有扫描会话 %1").arg(id)));
        prepared->session = m_store.session(id);
    }
    m_jobs.run([this, prepared] { return prepare(prepared.get()); },
               [this, prepared, respond](const Reply &reply) {
                   respond(reply.success ? launch(*prepared) : reply);
               });
}

Reply ScanService::prepare(Prepared *prepared) const
{
    const Reply reply = prepared->isResumed ? prepareResumed(prepared) : prepareNew(prepared);
    QString error;
    if (!reply.success || m_use.claim(&prepared->order.device, &error))
        return reply;
    return Reply::failure(kBusyCode, error);
}

Reply ScanService::prepareNew(Prepared *prepared) const
{
    Session &session = prepared->session;
    ScanRequest &request = prepared->order.request;
    Device &device = prepared->order.device;
    QString error;
    if (!parseScanRequest(prepared->params, &request, &error))
        return Reply::failure(kBadParamsCode, error);
    if (!m_catalog.find(request.devicePath, &device, &error))
        return Reply::failure(kNotFoundCode, error);
    session.sessionId = newId();
    session.devicePath = device.path;
    session.imagePath = device.volume.image()->path();
    session.volumeStart = device.volume.start();
    session.identity = identityOf(device);
    session.fileSystem =
        request.fileSystem.isEmpty() ? device.fileSystem.type.toUpper() : request.fileSystem;
    session.scanMode = request.modeWord();
    session.request = toJson(request);
    session.startedMs = QDateTime::currentMSecsSinceEpoch();
    return Reply::ok();
}

Reply ScanService::prepareResumed(Prepared *prepared) const
{
    Session &session = prepared->session;
    QString error;
    if (session.status == QLatin1String("completed"))
        return Reply::failure(kUnsupportedCode, QStringLiteral("该会话已扫描完成"));
    if (!parseScanRequest(session.request, &prepared->order.request, &error))
        return Reply::failure(kUnsupportedCode, QStringLiteral("该会话由旧版本创建，无法继续扫描"));
    if (!m_catalog.findAgain(session.deviceMark(), &prepared->order.device, &error))
        return Reply::failure(kNotFoundCode, error);
    session.devicePath = prepared->order.device.path;
    session.error.clear();
    prepared->order.elapsedMs = session.elapsedMs;
    return Reply::ok();
}

Reply ScanService::launch(const Prepared &prepared)
{
    Session session = prepared.session;
    if (m_running.size() >= std::size_t(kMaxRunning))
        return Reply::failure(kBusyCode, QStringLiteral("同时进行的扫描过多，请先停止其中一个"));
    if (isRunning(session.sessionId))
        return Reply::failure(kBusyCode, QStringLiteral("该会话正在扫描"));
    if (prepared.isResumed && !m_store.contains(session.sessionId))
        return Reply::failure(kNotFoundCode,
                              QStringLiteral("没有扫描会话 %1").arg(session.sessionId));
    session.status = QStringLiteral("running");
    QString error;
    if (!m_store.save(session, &error))
        return Reply::failure(kIoCode, error);

    ScanTask::Order order = prepared.order;
    order.sessionId = session.sessionId;
    order.logPath = m_store.resultsPath(session.sessionId);
    auto running = std::make_unique<Running>();
    running->control = std::make_shared<WorkControl>();
    auto *const task = new ScanTask(order, running->control, m_inbox, *this);
    running->thread.start(task, QStringLiteral("scan"));
    m_running[session.sessionId] = std::move(running);
    QMetaObject::invokeMethod(task, "run", Qt::QueuedConnection);
    return Reply::ok(sessionData(session.sessionId));
}

bool ScanService::isPaused(const QString &sessionId) const
{
    const auto it = m_running.find(sessionId);
    return it != m_running.end() && it->second->control->isPaused() &&
           !it->second->control->isStopped();
}

void ScanService::onProgress(const QString &sessionId, double percent, int filesFound,
                             qint64 elapsedMs, const QString &phaseText)
{
    m_host.broadcast(QStringLiteral("scan.progress"), {{QStringLiteral("sessionId"), sessionId},
                                                       {QStringLiteral("progress"), percent},
                                                       {QStringLiteral("filesFound"), filesFound},
                                                       {QStringLiteral("elapsed"), elapsedMs},
                                                       {QStringLiteral("phaseText"), phaseText}});
}

void ScanService::onPaused(const QString &sessionId)
{
    m_host.broadcast(QStringLiteral("scan.paused"), sessionData(sessionId));
}

Reply ScanService::withRunning(const QJsonObject &params,
                               const std::function<void(WorkControl &)> &tell)
{
    const QString id = idParam(params, QStringLiteral("sessionId"));
    if (id.isEmpty())
        return badParam(QStringLiteral("sessionId"));
    const auto it = m_running.find(id);
    if (it == m_running.end())
        return Reply::failure(kNotFoundCode, QStringLiteral("没有正在进行的扫描 %1").arg(id));
    tell(*it->second->control);
    return Reply::ok();
}

void ScanService::onFilesFound(const QString &sessionId, const QJsonArray &files)
{
    m_host.broadcast(QStringLiteral("scan.fileFound"),
                     {{QStringLiteral("sessionId"), sessionId}, {QStringLiteral("files"), files}});
}

void ScanService::onFinished(const QString &sessionId, const ScanOutcome &outcome)
{
    Session session = m_store.session(sessionId);
    session.status = statusWord(outcome.kind);
    session.error = outcome.error;
    session.elapsedMs = outcome.elapsedMs;
    session.scannedBytes = outcome.scannedBytes;
    session.unreadableBytes = outcome.unreadableBytes;
    session.filesFound = outcome.filesFound;
    session.notes = outcome.notes;
    QString error;
    if (!m_store.save(session, &error))
        qWarning() << "[ScanService]" << error;
    m_running.erase(sessionId);

    QJsonObject data = sessionData(sessionId);
    if (outcome.kind == ScanOutcome::Kind::Completed && error.isEmpty()) {
        data.insert(QStringLiteral("summary"), summaryOf(outcome));
        m_host.broadcast(QStringLiteral("scan.completed"), data);
        return;
    }
    const bool isStopped = outcome.kind == ScanOutcome::Kind::Stopped;
    const QString message = isStopped                 ? QStringLiteral("扫描已停止")
                            : outcome.error.isEmpty() ? error
                                                      : outcome.error;
    data.insert(QStringLiteral("error"),
                QJsonObject{{QStringLiteral("code"), isStopped ? kStoppedCode : kIoCode},
                            {QStringLiteral("message"), message}});
    m_host.broadcast(QStringLiteral("scan.error"), data);
}

} // namespace recoveryd
} // namespace services
