#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace services::vaultd {

/// What another program said.
struct CommandResult
{
    bool isRun = false; ///< It could be started, and ended by itself in time.
    int exitCode = -1;
    QByteArray output; ///< Both channels.

    bool isSuccess() const { return isRun && exitCode == 0; }
};

/// Runs a program of the system in the language "C" and waits for it, at most 10 seconds: not for a
/// thread that has others to answer. `input` is what it can read.
CommandResult runCommand(const QString &program, const QStringList &arguments,
                         const QByteArray &input = QByteArray());

/// This process has a filter on system calls, which its children inherit.
bool hasSystemCallFilter();

} // namespace services::vaultd
