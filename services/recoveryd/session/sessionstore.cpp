#include "recoveryd/session/sessionstore.h"

#include "common/jsonfile.h"
#include "common/text.h"
#include "core/jsonnumber.h"
#include "recoveryd/session/oldresults.h"
#include "recoveryd/session/resultlog.h"

#include <QDir>

#include <algorithm>

namespace services {
namespace recoveryd {

namespace {

const QString kSessionFile = QStringLiteral("session.json");
const QString kResultsFile = QStringLiteral("results.log");
const QString kRunning = QStringLiteral("running");

QString recoveryFile(const QString &recoveryId)
{
    return QStringLiteral("recovery-%1.json").arg(recoveryId);
}

} // namespace

QJsonObject Session::toJson() const
{
    return {{QStringLiteral("sessionId"), sessionId},
            {QStringLiteral("devicePath"), devicePath},
            {QStringLiteral("imagePath"), imagePath},
            {QStringLiteral("volumeStart"), volumeStart},
            {QStringLiteral("identity"), identity},
            {QStringLiteral("fileSystem"), fileSystem},
            {QStringLiteral("scanMode"), scanMode},
            {QStringLiteral("request"), request},
            {QStringLiteral("status"), status},
            {QStringLiteral("error"), error},
            {QStringLiteral("notes"), QJsonArray::fromStringList(notes)},
            {QStringLiteral("startedMs"), startedMs},
            {QStringLiteral("elapsedMs"), elapsedMs},
            {QStringLiteral("scannedBytes"), scannedBytes},
            {QStringLiteral("unreadableBytes"), unreadableBytes},
            {QStringLiteral("filesFound"), filesFound}};
}

Session Session::fromJson(const QJsonObject &object)
{
    const auto text = [&object](const char *key) {
        return object.value(QLatin1String(key)).toString();
    };
    const auto number = [&object](const char *key) {
        return core::toInt64(object.value(QLatin1String(key)));
    };
    Session session;
    session.sessionId = text("sessionId");
    session.devicePath = text("devicePath");
    session.imagePath = text("imagePath");
    session.volumeStart = number("volumeStart");
    session.identity = object.value(QLatin1String("identity")).toObject();
    session.fileSystem = text("fileSystem");
    session.scanMode = text("scanMode");
    session.request = object.value(QLatin1String("request")).toObject();
    session.status = text("status");
    session.error = text("error");
    const QJsonArray notes = object.value(QLatin1String("notes")).toArray();
    for (const QJsonValue &note : notes)
        session.notes.append(note.toString());
    session.startedMs = number("startedMs");
    session.elapsedMs = number("elapsedMs");
    session.scannedBytes = number("scannedBytes");
    session.unreadableBytes = number("unreadableBytes");
    session.filesFound = object.value(QLatin1String("filesFound")).toInt();
    return session;
}

bool SessionStore::open(const QString &stateDir, QString *error)
{
    m_root = QDir(stateDir).absoluteFilePath(QStringLiteral("sessions"));
    m_sessions.clear();
    if (!QDir().mkpath(m_root)) {
        if (error)
            *error = QStringLiteral("无法创建 %1").arg(m_root);
        return false;
    }
    const QStringList ids = QDir(m_root).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &id : ids) {
        QJsonObject object;
        QString problem;
        if (!readJson(folder(id) + kSessionFile, &object, &problem)) {
            qWarning() << "[SessionStore]" << problem;
            continue;
        }
        Session session = Session::fromJson(object);
        if (!isId(id) || session.sessionId != id)
            continue;
        if (session.status == kRunning)
            closeInterrupted(&session);
        m_sessions.insert(id, session);
    }
    return true;
}

/// What a killed scan had found and how far it was stands in its log.
void SessionStore::closeInterrupted(Session *session)
{
    session->status = QStringLiteral("interrupted");
    session->error = QStringLiteral("服务在扫描中途退出");
    session->filesFound = 0;
    ResultLog log;
    QString problem;
    if (openResults(resultsPath(session->sessionId), &log, &problem)) {
        const QJsonObject reached = log.checkpoint();
        session->filesFound = log.count();
        session->elapsedMs = core::toInt64(reached.value(QLatin1String("elapsedMs")));
        session->scannedBytes = core::toInt64(reached.value(QLatin1String("scannedBytes")));
    } else {
        qWarning() << "[SessionStore]" << problem;
    }
    if (!save(*session, &problem))
        qWarning() << "[SessionStore]" << problem;
}

QString SessionStore::resultsPath(const QString &sessionId) const
{
    return folder(sessionId) + kResultsFile;
}

QString SessionStore::folder(const QString &sessionId) const
{
    return m_root + QLatin1Char('/') + sessionId + QLatin1Char('/');
}

QVector<Session> SessionStore::sessions() const
{
    QVector<Session> sorted;
    for (const Session &session : m_sessions)
        sorted.append(session);
    std::sort(sorted.begin(), sorted.end(), [](const Session &a, const Session &b) {
        return a.startedMs != b.startedMs ? a.startedMs > b.startedMs : a.sessionId < b.sessionId;
    });
    return sorted;
}

bool SessionStore::save(const Session &session, QString *error)
{
    QDir().mkpath(folder(session.sessionId));
    m_sessions.insert(session.sessionId, session);
    return writeJson(folder(session.sessionId) + kSessionFile, session.toJson(), error);
}

bool SessionStore::remove(const QString &sessionId, QString *error)
{
    if (!QDir(folder(sessionId)).removeRecursively()) {
        if (error)
            *error = QStringLiteral("无法删除 %1").arg(folder(sessionId));
        return false;
    }
    m_sessions.remove(sessionId);
    return true;
}

bool SessionStore::saveRecovery(const QString &sessionId, const QJsonObject &record, QString *error)
{
    const QString id = record.value(QLatin1String("recoveryId")).toString();
    return writeJson(folder(sessionId) + recoveryFile(id), record, error);
}

QVector<QJsonObject> SessionStore::recoveries(const QString &sessionId) const
{
    QVector<QJsonObject> records;
    const QDir dir(folder(sessionId));
    const QStringList names = dir.entryList({recoveryFile(QStringLiteral("*"))}, QDir::Files);
    for (const QString &name : names) {
        QJsonObject record;
        QString error;
        if (readJson(dir.filePath(name), &record, &error))
            records.append(record);
        else
            qWarning() << "[SessionStore]" << error;
    }
    std::sort(records.begin(), records.end(), [](const QJsonObject &a, const QJsonObject &b) {
        return a.value(QLatin1String("startedMs")).toDouble() <
               b.value(QLatin1String("startedMs")).toDouble();
    });
    return records;
}

QString SessionStore::recoveryLogPath(const QString &sessionId, const QString &recoveryId) const
{
    return folder(sessionId) + QStringLiteral("recovery-%1.log").arg(recoveryId);
}

QJsonObject SessionStore::recovery(const QString &recoveryId, QString *sessionId) const
{
    QJsonObject record;
    for (auto it = m_sessions.cbegin(); it != m_sessions.cend(); ++it) {
        const QString path = folder(it.key()) + recoveryFile(recoveryId);
        if (QFile::exists(path) && readJson(path, &record, nullptr)) {
            *sessionId = it.key();
            return record;
        }
    }
    return QJsonObject();
}

bool openResults(const QString &path, ResultLog *log, QString *error)
{
    if (!QFile::exists(path) && !convertOldResults(path, error))
        return false;
    return !QFile::exists(path) || log->openForReading(path, error);
}

} // namespace recoveryd
} // namespace services
