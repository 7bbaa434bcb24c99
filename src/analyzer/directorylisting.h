#pragma once

#include "core/fileidentity.h"

#include <QByteArray>

#include <functional>

/// A directory or a regular file; `name` is as on disk and only valid during a call that passes it.
struct DirectoryEntry
{
    const char *name;
    bool isDirectory;
    qint64 size;                 ///< Bytes; 0 for a directory.
    qint64 modifiedMs;           ///< Since the epoch; 0 for a directory.
    core::FileIdentity identity; ///< Not valid for a directory.
};

/// Passes on each directory and regular file directly in a directory, hidden ones too, and nothing
/// else. Opens a link only if it is the root of a walk. What cannot be read is left out.
/// `shouldStop` is asked before every entry; false on a stop.
bool listDirectory(const QByteArray &path, bool isRoot, const std::function<bool()> &shouldStop,
                   const std::function<void(const DirectoryEntry &)> &onEntry);
