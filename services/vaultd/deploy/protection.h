#pragma once

#include "vaultd/deploy/hookprobe.h"
#include "vaultd/deploy/olderprograms.h"
#include "vaultd/deploy/preloadlist.h"
#include "vaultd/users/vaultusers.h"

#include <QElapsedTimer>
#include <QQueue>

namespace services::vaultd {

/// What is true of the hook at this moment.
struct HookFacts
{
    bool isLibraryThere = false;
    bool isActive = false;    ///< Listed for every program, and a probe was kept within the hour.
    bool needsReboot = false; ///< Programs from before the deployment still run.

    /// "global", "pending_reboot", or "degraded" while protection is on but nothing catches
    /// deletions; empty while it is off.
    QString deployMode(bool isEnabled) const;
};

/// Switches the protection of users on and off: the hook's maps, and the library's line in the
/// system's preload list, which stands there as long as any user has protection on. Nothing is
/// deployed unproven, and what turns out not to work is taken back at once. One thread;
/// deployments run one after the other.
class Protection : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        QByteArray entry; ///< The library as the list names it; empty: none is deployed here.
        QString preloadList = QStringLiteral("/etc/ld.so.preload");
        QString stateDir; ///< For the copy of the former list and what is under way.
    };
    /// Begins, changes and ends what the hook catches for a user.
    struct Hook
    {
        std::function<bool(const UserVault &vault, QString *error)> open;
        std::function<void(uid_t uid)> close;
    };
    using Done = std::function<void(bool isDone, const QString &error)>;

    Protection(const Options &options, const Hook &hook, VaultUsers &users);

    /// Takes back what a crash left unproven, or what nobody has on.
    void start();
    /// The switch is on only if the proof succeeds.
    void enable(UserVault *vault, const Done &done);
    void disable(UserVault *vault, const Done &done);
    /// After a change of what is protected, or for a vault that has just been opened.
    void apply(UserVault *vault);
    /// Probes first if the last proof is older than an hour, or failed.
    void facts(UserVault *vault, const std::function<void(const HookFacts &)> &tell);

private:
    using Step = std::function<void()>;

    bool isDeployable() const { return !m_options.entry.isEmpty(); }
    void enqueue(const Step &step);
    void endStep();
    void prove(UserVault *vault, const Done &done);
    void deploy(UserVault *vault, const Done &done);
    [[nodiscard]] bool confirm(UserVault *vault, bool isNew, const Moment &moment, QString *error);
    void takeBack(const PreloadList::Content &former, bool isNew);
    void giveUp(UserVault *vault, const QString &why, const Done &done);
    [[nodiscard]] bool list(PreloadList::Content *former, bool *isNew, QString *error);
    void probeForFacts(UserVault *vault, const std::function<void(const HookFacts &)> &tell);
    HookFacts factsNow(uid_t uid) const;
    Moment deployment() const;

    Options m_options;
    Hook m_hook;
    VaultUsers &m_users;
    QString m_library;
    PreloadList m_list;
    HookProbe m_probe;
    struct Proof
    {
        bool isKept = false;
        QElapsedTimer age;
    };
    QHash<uid_t, Proof> m_proofs;
    QQueue<Step> m_steps;
    bool m_isBusy = false;
};

/// Takes the library out of the preload list whatever the state of the service: for the removal of
/// the package.
[[nodiscard]] bool removeHook(const Protection::Options &options, QString *error);
/// Starts a program; if that fails with the library in the list, takes it out. For the boot, before
/// anybody logs in. *wasBroken: it was taken out.
[[nodiscard]] bool checkHook(const Protection::Options &options, bool *wasBroken, QString *error);

} // namespace services::vaultd
