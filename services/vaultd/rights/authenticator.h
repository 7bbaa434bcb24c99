#pragma once

#include "common/servicehost.h"

#include <QHash>
#include <QObject>

#include <functional>

namespace services::vaultd {

/// Checks a password; `done` is called once, now or later, on the same thread.
using PasswordCheck = std::function<void(const QString &user, const QString &password,
                                         const std::function<void(bool isRight)> &done)>;

/// Answers vault.authenticate and remembers which connections have shown whose they are. A user
/// who guesses is slowed down and, after several failures, locked out for a time, whatever number
/// of connections the guesses come by. One thread.
class Authenticator : public QObject
{
    Q_OBJECT

public:
    struct Rules
    {
        int maxFailures = 5;             ///< In a row; then the user is locked out.
        qint64 lockMs = 5 * 60 * 1000;   ///< Also how long failures are remembered.
        qint64 validMs = 15 * 60 * 1000; ///< A proof of identity counts so long.
        int failureDelayMs = 2000;       ///< A refusal comes no sooner.
        /// Milliseconds that also pass while the machine sleeps.
        std::function<qint64()> now = sinceBoot;
    };
    /// Whether the account is the peer's own.
    using IsOwnAccount = std::function<bool(const QString &user, const Peer &peer)>;

    Authenticator(PasswordCheck check, IsOwnAccount isOwn, const Rules &rules);

    void authenticate(const Request &request, const ServiceHost::Respond &respond);
    bool isAuthenticated(const Request &request) const;
    /// Answers with a refusal, and returns false, unless the connection has authenticated.
    [[nodiscard]] bool admit(const Request &request, const ServiceHost::Respond &respond) const;

    static qint64 sinceBoot();

private:
    struct Record
    {
        int failures = 0;
        qint64 lastFailure = 0;
        bool isChecking = false;
    };

    bool isLocked(const Record &record) const;
    void finish(const Request &request, const ServiceHost::Respond &respond, qint64 started,
                bool isRight);

    PasswordCheck m_check;
    IsOwnAccount m_isOwn;
    Rules m_rules;
    QHash<uid_t, Record> m_records;
    QHash<quint64, qint64> m_proofs; ///< When, by connection; connections are never named anew.
};

/// The account of that name has the peer's uid.
bool isAccountOf(const QString &user, const Peer &peer);

} // namespace services::vaultd
