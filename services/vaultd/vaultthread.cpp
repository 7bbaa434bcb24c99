#include "vaultd/vaultthread.h"

#include "common/outputfile.h"

#include <QDateTime>
#include <QDebug>

namespace services {
namespace vaultd {

VaultThread::Environment VaultThread::Environment::ofSystem()
{
    return {[] { return QDateTime::currentSecsSinceEpoch(); }, freeBytesAt};
}

VaultThread::VaultThread(const VaultLayout &layout, const QString &stateDir,
                         const Environment &environment, OnChanges onChanges)
    : m_layout(layout)
    , m_environment(environment)
    , m_onChanges(std::move(onChanges))
    , m_store(layout, stateDir, m_stop)
{}

VaultThread::~VaultThread()
{
    m_stop = true;
    m_thread.stop();
}

bool VaultThread::start(QVector<VaultFile> *files, QString *error)
{
    if (!m_store.open(error))
        return false;
    *files = m_store.files();
    m_jobs = new Mailbox;
    m_thread.start(m_jobs, QStringLiteral("vault"));
    return true;
}

void VaultThread::refresh(const VaultConfig &limits)
{
    post(
        [this, limits](VaultChanges *changes, Outcome *) {
            QString error;
            if (!m_store.refresh(changes, &error))
                qWarning() << "[VaultThread]" << error;
            m_store.expire(limits, m_environment.now(), m_environment.freeBytes(m_layout.root()),
                           changes);
        },
        OnDone());
}

void VaultThread::restore(const QStringList &ids, const QString &targetDir, const OnDone &done)
{
    post(
        [this, ids, targetDir](VaultChanges *changes, Outcome *outcome) {
            for (const QString &id : ids) {
                QString path;
                QString error = QStringLiteral("服务正在退出");
                if (!m_stop && m_store.restore(id, targetDir, &path, changes, &error))
                    outcome->placed.insert(id, path);
                else
                    outcome->failures.insert(id, error);
            }
        },
        done);
}

void VaultThread::remove(const QStringList &ids, const OnDone &done)
{
    post([this, ids](VaultChanges *changes,
                     Outcome *outcome) { m_store.remove(ids, changes, &outcome->failures); },
         done);
}

void VaultThread::removeAll(const OnDone &done)
{
    post(
        [this](VaultChanges *changes, Outcome *outcome) {
            QStringList ids;
            const QVector<VaultFile> files = m_store.files();
            for (const VaultFile &file : files)
                ids.append(file.id);
            m_store.remove(ids, changes, &outcome->failures);
        },
        done);
}

void VaultThread::post(const Work &work, const OnDone &done)
{
    m_jobs->post([this, work, done] {
        VaultChanges changes;
        Outcome outcome;
        work(&changes, &outcome);
        m_inbox.post([this, done, changes, outcome] {
            if (!changes.isEmpty())
                m_onChanges(changes);
            if (done)
                done(outcome);
        });
    });
}

} // namespace vaultd
} // namespace services
