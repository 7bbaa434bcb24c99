#include "vaultd/vaultthread.h"

#include "common/outputfile.h"

#include <QDateTime>
#include <QDebug>
#include <QTimer>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

constexpr int kNice = 5;
constexpr int kGroupMs = 50;       // Deletions of this time are recorded together.
constexpr int kAgainMs = 1000;     // Between two looks at what is not settled.
constexpr int kFrequentTries = 60; // After so many, contents that are in use wait longer.
constexpr qint64 kSealLaterMs = 60 * 1000;

KeepRules rulesOf(const VaultConfig &config)
{
    KeepRules rules;
    rules.leftOutDirs = config.excludedDirs;
    rules.leftOutNames = config.excludedNames;
    rules.copyLimitBytes = config.copyLimitBytes;
    return rules;
}

} // namespace

VaultThread::Environment VaultThread::Environment::ofSystem()
{
    return {[] { return QDateTime::currentSecsSinceEpoch(); }, freeBytesAt};
}

VaultThread::VaultThread(const VaultLayout &layout, const QString &stateDir,
                         const Environment &environment, OnChanges onChanges)
    : m_layout(layout)
    , m_environment(environment)
    , m_onChanges(std::move(onChanges))
    , m_keeper(layout, layout.owner(), stateDir)
    , m_store(layout, stateDir, m_stop)
    , m_shadows(layout, layout.owner(), m_keeper)
{
    m_shadows.setWake([this] { wake(); });
    m_keeper.setRules(rulesOf(VaultConfig()));
}

VaultThread::~VaultThread()
{
    m_stop = true;
    m_keeper.setWake({});
    m_shadows.stop();
    m_thread.stop();
}

bool VaultThread::start(QString *error)
{
    m_store.setKeeper(&m_keeper);
    if (!m_keeper.open(error) || !m_store.open(error))
        return false;
    m_jobs = new Mailbox;
    m_round = new QTimer(m_jobs);
    m_round->setSingleShot(true);
    QObject::connect(m_round, &QTimer::timeout, m_jobs, [this] { round(); });
    m_thread.start(m_jobs, QStringLiteral("vault"));
    // Programs wait for the threads that take their files, and those for nobody.
    m_jobs->post([] { ::setpriority(PRIO_PROCESS, id_t(::syscall(SYS_gettid)), kNice); });
    m_keeper.setWake([this] { wake(); });
    wake(); // For what an earlier process has left.
    return true;
}

void VaultThread::protect(const VaultConfig &config, bool isEnabled)
{
    m_keeper.setRules(rulesOf(config));
    m_secondNetReason.clear();
    if (m_layout.dir() && !m_shadows.restart(config, isEnabled, &m_secondNetReason))
        qInfo() << "[VaultThread] no second net:" << m_secondNetReason;
}

/// From any thread: what is kept within a short time is recorded together.
void VaultThread::wake()
{
    if (m_isWoken.exchange(true))
        return;
    m_jobs->post([this] { m_round->start(kGroupMs); });
}

void VaultThread::round()
{
    m_isWoken = false;
    VaultChanges changes;
    bool mustComeBack = m_store.recordKept(&changes);
    if (!changes.isEmpty()) {
        m_sealTries = 0;
        m_sealAtMs = 0;
    }
    if (keptClockMs() >= m_sealAtMs) {
        const bool hasUnsealed = m_store.seal();
        const bool isFrequent = m_store.isAmidSeals() || ++m_sealTries < kFrequentTries;
        m_sealAtMs = isFrequent ? 0 : keptClockMs() + kSealLaterMs;
        mustComeBack = (hasUnsealed && isFrequent) || mustComeBack;
    }
    if (m_store.isAmidSeals())
        m_round->start(0);
    else if (mustComeBack && !m_round->isActive())
        m_round->start(kAgainMs);
    if (changes.isEmpty())
        return;
    m_inbox.post([this, changes] { m_onChanges(changes); });
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
            m_round->start(0);
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
    post([this](VaultChanges *changes,
                Outcome *outcome) { m_store.remove(m_store.ids(), changes, &outcome->failures); },
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
