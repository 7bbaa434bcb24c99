#pragma once

#include <QStringList>

namespace cli {

// Each runs one command; `arguments` begins with the program's name and is without the command's.
// The exit code is one of ExitCode.
int runIndex(const QStringList &arguments);
int runSearch(const QStringList &arguments);
int runGrep(const QStringList &arguments);
int runSpace(const QStringList &arguments);
int runDupes(const QStringList &arguments);
int runShare(const QStringList &arguments);
int runRecover(const QStringList &arguments);
int runVault(const QStringList &arguments);

} // namespace cli
