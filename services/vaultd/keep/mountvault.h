#pragma once

#include "vaultd/vaultlayout.h"

#include <QList>

namespace services::vaultd {

/// Where the vault of a file on another file system than the home stands: the mount point that an
/// absolute path is below, if that is the file system `device` and can be written to. Empty if
/// there is none, as on a network share or where the system only shows something.
QByteArray mountFor(const QByteArray &path, dev_t device);

/// The mount points that have a vault now.
QList<QByteArray> mountsWithVaults();

} // namespace services::vaultd
