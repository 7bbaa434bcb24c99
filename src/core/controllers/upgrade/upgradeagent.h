#pragma once

#include <QString>
#include <QStringList>

namespace core {
namespace controllers {
namespace upgrade {

/// Where the update agent is looked for, in order: beside this program, then where its package
/// puts it.
QStringList upgradeAgentCandidates();
/// The first candidate that is a file; empty if there is none.
QString upgradeAgentBinaryPath(const QStringList &candidates);
/// Starts the agent detached, in a new session that is returned through `session`.
[[nodiscard]] bool launchUpgradeAgent(const QStringList &candidates, bool forced, bool interactive,
                                      QString *session, QString *error);

} // namespace upgrade
} // namespace controllers
} // namespace core
