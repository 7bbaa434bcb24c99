#pragma once

#include "core/fileidentity.h"

#include <QVariantMap>

// How the identity of a file, as it was when it was scanned, is carried in the map of that file:
// "device", "inode" and "modifiedNs" as unsigned 64-bit numbers.

/// Adds nothing if the identity is not valid.
void insertIdentity(const core::FileIdentity &identity, QVariantMap *file);
/// `size` in bytes. Not valid if the map holds none.
core::FileIdentity identityFromMap(const QVariantMap &file, qint64 size);
