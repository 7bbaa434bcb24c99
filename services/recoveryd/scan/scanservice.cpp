#include "recoveryd/scan/scanservice.h"

#include "common/params.h"

#include <QDateTime>

namespace services {
namespace recoveryd {

namespace {

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
    default:
        return QStringLiteral("failed");
    }
}

} // namespace

ScanService::ScanService(ServiceHost &host, const DeviceCatalog &catalog, SessionStore &store)
    : m_host(host)
    , m_catalog(catalog)
    , m_store(store)
{
    using Tell = std::function<void(WorkControl &)>;
    m_host.handle(QStringLiteral("scan.start"),
                  [this](const QJsonObject &params) { return start(params); });
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

Reply ScanService::start(const QJsonObject &params)
{
    ScanRequest request;
    QString error;
    if (!parseScanRequest(params, &request, &error))
        return Reply::failure(kBadParamsCode, error);
    Device device;
    if (!m_catalog.find(request.devicePath, &device, &error))
        return Reply::failure(kNotFoundCode, error);
    if (m_running.size() >= std::size_t(kMaxRunning))
        return Reply::failure(kBusyCode, QStringLiteral("同时进行的扫描过多，请先停止其中一个"));

    Session session;
    session.sessionId = newId();
    session.devicePath = device.path;
    session.imagePath = device.volume.image()->path();
    session.volumeStart = device.volume.start();
    session.fileSystem =
        request.fileSystem.isEmpty() ? device.fileSystem.type.toUpper() : request.fileSystem;
    session.scanMode = request.modeWord();
    session.status = QStringLiteral("running");
    session.startedMs = QDateTime::currentMSecsSinceEpoch();
    if (!m_store.save(session, &error))
        return Reply::failure(kIoCode, error);

    auto running = std::make_unique<Running>();
    running->control = std::make_shared<WorkControl>();
    auto *const task =
        new ScanTask(session.sessionId, device, request, running->control, m_inbox, *this);
    running->thread.start(task, QStringLiteral("scan"));
    m_running[session.sessionId] = std::move(running);
    QMetaObject::invokeMethod(task, "run", Qt::QueuedConnection);
    return Reply::ok(sessionData(session.sessionId));
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

void ScanService::onFilesFound(const QString &sessionId, const QVector<FoundFile> &files)
{
    QJsonArray array;
    for (const FoundFile &file : files)
        array.append(file.toJson());
    m_running.at(sessionId)->files += files;
    m_host.broadcast(QStringLiteral("scan.fileFound"),
                     {{QStringLiteral("sessionId"), sessionId}, {QStringLiteral("files"), array}});
}

void ScanService::onFinished(const QString &sessionId, const ScanOutcome &outcome)
{
    Session session = m_store.session(sessionId);
    session.status = statusWord(outcome.kind);
    session.error = outcome.error;
    session.elapsedMs = outcome.elapsedMs;
    session.scannedBytes = outcome.scannedBytes;
    session.filesFound = outcome.filesFound;
    QString error;
    // The files first: a session that is told to be complete has them.
    if (!m_store.saveFiles(sessionId, m_running.at(sessionId)->files, &error) ||
        !m_store.save(session, &error))
        qWarning() << "[ScanService]" << error;
    m_running.erase(sessionId);

    QJsonObject data = sessionData(sessionId);
    if (outcome.kind == ScanOutcome::Kind::Completed && error.isEmpty()) {
        data.insert(QStringLiteral("summary"),
                    QJsonObject{{QStringLiteral("filesFound"), outcome.filesFound},
                                {QStringLiteral("elapsedMs"), outcome.elapsedMs},
                                {QStringLiteral("scannedBytes"), outcome.scannedBytes}});
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

bool ScanService::filesOf(const QString &sessionId, QVector<FoundFile> *files, QString *error) const
{
    const auto it = m_running.find(sessionId);
    if (it != m_running.end()) {
        *files = it->second->files;
        return true;
    }
    return m_store.loadFiles(sessionId, files, error);
}

} // namespace recoveryd
} // namespace services
