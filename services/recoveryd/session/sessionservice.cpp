#include "recoveryd/session/sessionservice.h"

#include "common/params.h"

namespace services {
namespace recoveryd {

namespace {

constexpr int kDefaultLimit = 50;
constexpr int kMaxLimit = 1000;

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
    handle(QStringLiteral("session.getFiles"), [this](const QString &id) { return files(id); });
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
    data.insert(QStringLiteral("status"), session.status);
    data.insert(QStringLiteral("scanSummary"),
                QJsonObject{{QStringLiteral("filesFound"), session.filesFound},
                            {QStringLiteral("elapsedMs"), session.elapsedMs},
                            {QStringLiteral("scannedBytes"), session.scannedBytes}});
    data.insert(QStringLiteral("recoveryTasks"), tasks);
    return Reply::ok(data);
}

Reply SessionService::files(const QString &sessionId) const
{
    QVector<FoundFile> files;
    QString error;
    if (!m_scans.filesOf(sessionId, &files, &error))
        return Reply::failure(kIoCode, error);
    QJsonArray array;
    for (const FoundFile &file : qAsConst(files))
        array.append(file.toJson());
    return Reply::ok({{QStringLiteral("files"), array}});
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
