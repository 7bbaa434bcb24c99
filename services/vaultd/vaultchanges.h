#pragma once

#include "vaultd/vaultfile.h"

#include <QStringList>
#include <QVector>

namespace services {
namespace vaultd {

/// What a piece of work has changed in the list of files.
struct VaultChanges
{
    // In this order: a file may go and come back, or come and have to go.
    QStringList removed;
    QVector<VaultFile> added;
    QStringList expired;

    bool isEmpty() const { return removed.isEmpty() && added.isEmpty() && expired.isEmpty(); }
};

} // namespace vaultd
} // namespace services
