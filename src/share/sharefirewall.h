#pragma once

#include <QObject>
#include <QString>

#include <functional>

/// What the vault service is told about the port of the shares.
struct ShareFirewallState
{
    bool isActive = false; ///< Whether any share is.
    int port = 0;
};

/// Has the vault service open or close the port of the shares in the system's firewall.
class ShareFirewall
{
public:
    enum class Wait { AllEvents, WithoutUserInput };

    /// `owner` holds this object, which may go with it while sync() runs.
    ShareFirewall(const QString &serviceName, QObject *owner);

    /// Tells the service, over a connection of its own. Blocks for at most 1.2 s to connect, then
    /// runs a nested event loop for at most 2.5 s until the answer, the end of the owner or of the
    /// program. False with a text for the log if the service does not agree.
    ///
    /// Anything may happen in that loop. A change that is made in it, and so calls this again, does
    /// not wait: the call is true at once, and the wait under way goes round again with what
    /// `state` gives then, so that the last state is the one the service hears last.
    [[nodiscard]] bool sync(const std::function<ShareFirewallState()> &state, Wait wait,
                            QString *error);

private:
    QString m_serviceName;
    QObject *m_owner;
    bool m_isWaiting = false;
    bool m_isStale = false; ///< Something changed during the wait.
};
