#include "recoveryd/session/sessionservice.h"

#include "common/params.h"

namespace services {
namespace recoveryd {

namespace {

constexpr int kDefaultLimit = 50;
constexpr int kMaxLimit = 1000;
// A page of files ends here, so that its frame stays below 2 MB whatever the names are.
constexpr qint64 kMaxPageBytes = 1500 * 1000;
// A client that asks for everything at once gets at most this; JSON in memory takes a multiple.
constexpr qint64 kMaxListBytes = 256 * 1000 * 1000;
// Of a file's object besides its name, path and reason.
constexpr qint64 kRowBytes = 520;

/// A generous estimate of the bytes that a file takes in a frame.
qint64 frameBytes(const FoundFile &file)
{
    return kRowBytes +
           4 * qint64(file.name.size() + file.path.size() + file.integrityReason.size());
}

QString scanTime(const Session &session)
{
    return timeText(QDateTime::fromMSecsSinceEpoch(session.startedMs));
}

QJsonObject row(const Session &session)
{
    return {{QStringLiteral("sessionId"), session.sessionId},
            {QStringLiteral("devicePath"), session.devicePath},
            {QStringLiteral("scanTime"), scanTime(session)},
            {QStringLiteral("filesFound"), session.filesFound},
            {QStringLiteral("scanMode"), session.scanMode}};
}

} // namespace

SessionService::SessionService(ServiceHost &host, const ScanService &scans, SessionStore &store,
                               std::function<bool(const QString &)> isInUse)
    : m_scans(scans)
    , m_store(store)
    , m_isInUse(std::move(isInUse))
    , m_jobs(QStringLiteral("session files"))
{
    host.handle(QStringLiteral("session.list"),
                [this](const QJsonObject &params) { return list(params); });
    const auto handle = [this, &host](const QString &method,
                                      const std::function<Reply(const QString &)> &handler) {
        host.handle(method, [this, handler](const QJsonObject &params) {
            const QString id = idParam(params, QStringLiteral("sessionId"));
            if (id.isEmpty())
                return badParam(QStringLiteral("sessionId"));
            if (!m_store.contains(id))
                return Reply::failure(kNotFoundCode, QStringLiteral("没有扫描会话 %1").arg(id));
            return handler(id);
        });
    };
    handle(QStringLiteral("session.getDetail"), [this](const QString &id) { return detail(id); });
    host.handle(QStringLiteral("session.getFiles"),
                [this](const QJsonObject &params, const ServiceHost::Respond &respond) {
                    files(params, respond);
                });
    handle(QStringLiteral("session.delete"), [this](const QString &id) { return remove(id); });
}

Reply SessionService::list(const QJsonObject &params) const
{
    const int limit = countParam(params, QStringLiteral("limit"), kDefaultLimit);
    const int offset = countParam(params, QStringLiteral("offset"), 0);
    if (limit < 0)
        return badParam(QStringLiteral("limit"));
    if (offset < 0)
        return badParam(QStringLiteral("offset"));
    const QVector<Session> sessions = m_store.sessions().mid(offset, qMin(limit, kMaxLimit));
    QJsonArray rows;
    for (const Session &session : sessions)
        rows.append(row(session));
    return Reply::ok({{QStringLiteral("sessions"), rows}});
}

Reply SessionService::detail(const QString &sessionId) const
{
    const Session session = m_store.session(sessionId);
    QJsonArray tasks;
    const QVector<QJsonObject> records = m_store.recoveries(sessionId);
    for (QJsonObject record : records) {
        record.remove(QStringLiteral("fileStatuses"));
        tasks.append(record);
    }
    QJsonObject data = row(session);
    data.insert(QStringLiteral("fileSystem"), session.fileSystem);
    data.insert(QStringLiteral("elapsedMs"), session.elapsedMs);
    data.insert(QStringLiteral("status"),
                m_scans.isPaused(sessionId) ? QStringLiteral("paused") : session.status);
    data.insert(QStringLiteral("scanSummary"),
                QJsonObject{{QStringLiteral("filesFound"), session.filesFound},
                            {QStringLiteral("elapsedMs"), session.elapsedMs},
                            {QStringLiteral("scannedBytes"), session.scannedBytes},
                            {QStringLiteral("unreadableBytes"), session.unreadableBytes},
                            {QStringLiteral("notes"), QJsonArray::fromStringList(session.notes)}});
    data.insert(QStringLiteral("error"), session.error);
    data.insert(QStringLiteral("canResume"), session.canResume());
    data.insert(QStringLiteral("recoveryTasks"), tasks);
    return Reply::ok(data);
}

void SessionService::files(const QJsonObject &params, const ServiceHost::Respond &respond)
{
    Page page;
    page.sessionId = idParam(params, QStringLiteral("sessionId"));
    if (page.sessionId.isEmpty())
        return respond(badParam(QStringLiteral("sessionId")));
    if (!m_store.contains(page.sessionId))
        return respond(
            Reply::failure(kNotFoundCode, QStringLiteral("没有扫描会话 %1").arg(page.sessionId)));
    page.offset = countParam(params, QStringLiteral("offset"), 0);
    if (page.offset < 0)
        return respond(badParam(QStringLiteral("offset")));
    if (params.contains(QLatin1String("limit"))) {
        page.limit = countParam(params, QStringLiteral("limit"), -1);
        if (page.limit < 0)
            return respond(badParam(QStringLiteral("limit")));
    }
    page.resultsPath = m_store.resultsPath(page.sessionId);
    m_jobs.run([this, page] { return readPage(page); }, respond);
}

Reply SessionService::readPage(const Page &page)
{
    QString error;
    if (!m_open || m_openSession != page.sessionId || !m_open->isOpen()) {
        m_open = std::make_unique<ResultLog>();
        m_openSession = page.sessionId;
        if (!openResults(page.resultsPath, m_open.get(), &error)) {
            m_open.reset();
            return Reply::failure(kIoCode, error);
        }
    } else if (!m_open->refresh(&error)) {
        return Reply::failure(kIoCode, error);
    }
    const int total = m_open->count();
    const int end =
        page.limit < 0 ? total : int(qMin(qint64(total), qint64(page.offset) + page.limit));
    const qint64 mostBytes = page.limit < 0 ? kMaxListBytes : kMaxPageBytes;
    QJsonArray array;
    qint64 bytes = 0;
    for (int row = page.offset; row < end; ++row) {
        ResultRow found;
        if (!m_open->readRow(row, &found))
            return Reply::failure(kIoCode, QStringLiteral("扫描结果已损坏"));
        const FoundFile file = found.described();
        bytes += frameBytes(file);
        if (bytes > mostBytes && !array.isEmpty())
            break;
        array.append(file.toJson());
    }
    return Reply::ok({{QStringLiteral("files"), array},
                      {QStringLiteral("offset"), page.offset},
                      {QStringLiteral("total"), total}});
}

Reply SessionService::remove(const QString &sessionId)
{
    if (m_scans.isRunning(sessionId) || m_isInUse(sessionId))
        return Reply::failure(kBusyCode, QStringLiteral("会话正在使用中，请先停止扫描或恢复"));
    QString error;
    if (!m_store.remove(sessionId, &error))
        return Reply::failure(kIoCode, error);
    return Reply::ok();
}

} // namespace recoveryd
} // namespace services
