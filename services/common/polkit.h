#pragma once

#include "core/ipc/peer.h"

#include <QObject>
#include <QString>

#include <functional>

namespace services {

/// Asks the system's authorization manager whether the process behind a connection may do
/// something; the user may be asked for a password meanwhile. One thread, event-driven.
class Polkit : public QObject
{
    Q_OBJECT

public:
    /// `reason`: for the user, if it is not allowed.
    using Decide = std::function<void(bool isAllowed, const QString &reason)>;

    /// `checker`: the program that asks, for tests.
    explicit Polkit(const QString &checker = QStringLiteral("pkcheck"), QObject *parent = nullptr);

    /// Calls `decide` once, now or later; never after destruction. Root is always allowed. Refused
    /// where the process has ended, or where the manager is not there.
    void check(const QString &action, const core::ipc::Peer &peer, const Decide &decide);

private:
    QString m_checker;
};

/// "pid,start time,uid": what tells a process from a later one under the same number. Empty if it
/// has ended, or if it runs as another user by now.
QString polkitSubject(const core::ipc::Peer &peer);

} // namespace services
