#pragma once

#include <QList>
#include <QString>

namespace services::vaultd {

/// The firewall of the machine, as far as it is told to let ports in.
enum class FirewallKind { None, Firewalld, Ufw, Nftables };

/// Ports that this program has opened, and by which firewall.
struct FirewallState
{
    FirewallKind kind = FirewallKind::None;
    QList<int> ports; ///< Each once; those that were open before are not among them.
};

// These run programs of the system and wait for them. Not for a thread that has others to answer.

/// Which firewall is active.
FirewallKind activeFirewall();
/// Makes the ports, all TCP, the ones that are open for this program; *state: what was and what is
/// then. Where the firewall has names for rules, ours are "morvane-share".
[[nodiscard]] bool setOpenPorts(const QList<int> &ports, FirewallState *state, QString *error);

/// The commands to nft, in JSON, that leave exactly these ports open for this program, from its
/// listing of the ruleset in JSON. *hasFirewall: something there judges what comes in.
QByteArray nftCommands(const QByteArray &ruleset, const QList<int> &ports, bool *hasFirewall);

} // namespace services::vaultd
