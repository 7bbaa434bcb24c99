#include "support/recoveryharness.h"

#include <QTest>

namespace testsupport {

RecoveryClient::Event RecoveryClient::waitFor(const QString &id, const QStringList &names)
{
    Event found;
    const bool isThere = QTest::qWaitFor(
        [&] {
            while (m_lookedAt < m_events.size()) {
                const Event &event = m_events.at(m_lookedAt++);
                const bool isMine =
                    event.data.value(QLatin1String("sessionId")).toString() == id ||
                    event.data.value(QLatin1String("recoveryId")).toString() == id ||
                    event.data.value(QLatin1String("taskId")).toString() == id;
                if (isMine && names.contains(event.name)) {
                    found = event;
                    return true;
                }
            }
            return false;
        },
        60000);
    return isThere ? found : Event();
}

QJsonArray RecoveryClient::filesFound(const QString &sessionId) const
{
    QJsonArray files;
    for (const Event &event : m_events) {
        if (event.name != QLatin1String("scan.fileFound") ||
            event.data.value(QLatin1String("sessionId")).toString() != sessionId)
            continue;
        const QJsonArray batch = event.data.value(QLatin1String("files")).toArray();
        for (const QJsonValue &file : batch)
            files.append(file);
    }
    return files;
}

QString RecoveryClient::startScan(const QJsonObject &params)
{
    return request(QStringLiteral("scan.start"), params)
        .data.value(QLatin1String("sessionId"))
        .toString();
}

QString RecoveryClient::scan(const QJsonObject &params)
{
    const QString id = startScan(params);
    if (id.isEmpty())
        return id;
    const Event event =
        waitFor(id, {QStringLiteral("scan.completed"), QStringLiteral("scan.error")});
    return event.name == QLatin1String("scan.completed") ? id : QString();
}

bool RecoveryHarness::start(const QStringList &images)
{
    m_images = images;
    return restart();
}

bool RecoveryHarness::restart()
{
    m_client.reset();
    m_daemon.reset();
    services::recoveryd::Daemon::Options options;
    options.images = m_images;
    options.stateDir = path(QStringLiteral("state"));
    options.socketName = path(QStringLiteral("s"));
    options.mountedDir = mountedDir.isEmpty() ? path(QStringLiteral("unmounted")) : mountedDir;
    options.freeBytes = [this](const QString &) {
        return freeBytes;
    };
    m_daemon = std::make_unique<services::recoveryd::Daemon>(options);
    QString error;
    if (!m_daemon->start(&error)) {
        qWarning() << error;
        return false;
    }
    m_client = std::make_unique<RecoveryClient>(options.socketName);
    return m_client->connectNow();
}

} // namespace testsupport
