#include "recoveryd/session/sessionstore.h"

#include "common/jsonfile.h"
#include "common/text.h"
#include "core/jsonnumber.h"

#include <QDir>

#include <algorithm>

namespace services {
namespace recoveryd {

namespace {

const QString kSessionFile = QStringLiteral("session.json");
const QString kFilesFile = QStringLiteral("files.json");
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
            {QStringLiteral("fileSystem"), fileSystem},
            {QStringLiteral("scanMode"), scanMode},
            {QStringLiteral("status"), status},
            {QStringLiteral("error"), error},
            {QStringLiteral("startedMs"), startedMs},
            {QStringLiteral("elapsedMs"), elapsedMs},
            {QStringLiteral("scannedBytes"), scannedBytes},
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
    session.fileSystem = text("fileSystem");
    session.scanMode = text("scanMode");
    session.status = text("status");
    session.error = text("error");
    session.startedMs = number("startedMs");
    session.elapsedMs = number("elapsedMs");
    session.scannedBytes = number("scannedBytes");
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
        if (session.status == kRunning) {
            session.status = QStringLiteral("interrupted");
            session.error = QStringLiteral("服务在扫描中途退出");
            if (!save(session, &problem))
                qWarning() << "[SessionStore]" << problem;
        }
        m_sessions.insert(id, session);
    }
    return true;
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

bool SessionStore::saveFiles(const QString &sessionId, const QVector<FoundFile> &files,
                             QString *error)
{
    QJsonArray stored;
    for (const FoundFile &file : files)
        stored.append(file.toStored());
    return writeJson(folder(sessionId) + kFilesFile, {{QStringLiteral("files"), stored}}, error);
}

bool SessionStore::loadFiles(const QString &sessionId, QVector<FoundFile> *files,
                             QString *error) const
{
    files->clear();
    const QString path = folder(sessionId) + kFilesFile;
    if (!QFile::exists(path))
        return true;
    QJsonObject object;
    if (!readJson(path, &object, error))
        return false;
    const QJsonArray stored = object.value(QLatin1String("files")).toArray();
    for (const QJsonValue &value : stored) {
        FoundFile file;
        if (FoundFile::fromStored(value.toObject(), &file))
            files->append(file);
    }
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

QJsonObject SessionStore::recovery(const QString &recoveryId) const
{
    QJsonObject record;
    for (auto it = m_sessions.cbegin(); it != m_sessions.cend(); ++it) {
        const QString path = folder(it.key()) + recoveryFile(recoveryId);
        if (QFile::exists(path) && readJson(path, &record, nullptr))
            return record;
    }
    return QJsonObject();
}

} // namespace recoveryd
} // namespace services
