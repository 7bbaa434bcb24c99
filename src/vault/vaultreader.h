#pragma once

#include <QJsonArray>
#include <QString>

#include <functional>

namespace vault {

/// Whether `parent` has a vault: its directory and the one of its records. Links are none.
bool hasVault(const QString &parent);

/// The records of the parent's vault whose content is there too, in the order of their file names.
/// What cannot be read, is no record, or is a link, a pipe or a directory instead of a file is left
/// out. Blocks on the disk, so not for the GUI thread; ends early once `isStopped` says so.
QJsonArray loadVaultFiles(const QString &parent, const std::function<bool()> &isStopped = {});

/// Opens the content of a protected file for reading. The descriptor, which the caller closes, or
/// -1. Ids that could lead out of the vault, links and what is no regular file are refused.
int openVaultContent(const QString &parent, const QString &id, QString *error);

} // namespace vault
