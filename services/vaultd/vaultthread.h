#pragma once

#include "common/mailbox.h"
#include "core/workerthread.h"
#include "vaultd/keep/vaultkeeper.h"
#include "vaultd/shadow/shadownet.h"
#include "vaultd/vaultstore.h"

class QTimer;

namespace services {
namespace vaultd {

/// The vault's store on a thread of its own, so that the service answers during long work. Its
/// public functions and all callbacks belong to the thread that made it.
class VaultThread
{
public:
    /// The clock and the disk, apart for tests. Called from the vault's thread.
    struct Environment
    {
        std::function<qint64()> now;                         ///< Seconds since the epoch.
        std::function<qint64(const QString &dir)> freeBytes; ///< Below 0 if unknown.
        static Environment ofSystem();
    };
    struct Outcome
    {
        QHash<QString, QString> placed;   ///< Path by id of what was restored.
        QHash<QString, QString> failures; ///< Why by id.
    };
    using OnChanges = std::function<void(const VaultChanges &)>;
    using OnDone = std::function<void(const Outcome &)>;

    VaultThread(const VaultLayout &layout, const QString &stateDir, const Environment &environment,
                OnChanges onChanges);
    /// Ends what runs at the next safe place and waits for it.
    ~VaultThread();

    /// Opens the vault, which takes its time, and its index; the thread runs from then on.
    [[nodiscard]] bool start(QString *error);
    /// Takes files of other programs into this vault, from any thread. It lives as long as this.
    Keeper *keeper() { return &m_keeper; }
    /// What is protected from now on; nothing if it is off.
    void protect(const VaultConfig &config, bool isEnabled);
    /// Why deletions past the hook are not kept; empty while they are. On the thread of protect().
    const QString &secondNetReason() const { return m_secondNetReason; }

    // Each is done in order. Changes come before the outcome; neither comes after destruction.
    /// Looks for what others have changed and removes what exceeds the limits.
    void refresh(const VaultConfig &limits);
    void restore(const QStringList &ids, const QString &targetDir, const OnDone &done);
    void remove(const QStringList &ids, const OnDone &done);
    void removeAll(const OnDone &done);

private:
    using Work = std::function<void(VaultChanges *, Outcome *)>;

    void post(const Work &work, const OnDone &done);
    void wake();
    void round();

    VaultLayout m_layout;
    Environment m_environment;
    OnChanges m_onChanges;
    std::atomic<bool> m_stop{false};
    VaultKeeper m_keeper;
    VaultStore m_store; ///< Only the thread touches it once it runs.
    std::atomic<bool> m_isWoken{false};
    QTimer *m_round = nullptr; ///< Of the thread.
    qint64 m_sealAtMs = 0;
    int m_sealTries = 0;
    Mailbox m_inbox; // before the thread, which posts to it until it ends
    Mailbox *m_jobs = nullptr;
    core::WorkerThread m_thread;
    ShadowNet m_shadows; // after all that it makes records with
    QString m_secondNetReason;
};

} // namespace vaultd
} // namespace services
