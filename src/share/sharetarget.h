#pragma once

#include "share/sharedentry.h"

#include <QString>

struct ShareRoot;

namespace share {

/// What a request asks for below a root.
struct ShareTarget
{
    bool isFound() const { return entry.isOpen(); }

    bool isHidden = false; ///< Not found: answered as if it were not there, whether it is or not.
    QString path;          ///< Clean and decoded; empty for the root itself.
    SharedEntry entry;     ///< Not open if the path leads out of the root or to nothing.
};

/// The one test of what belongs to a share, for lists, downloads, checks and uploads. `entry` is
/// the root, held open; `relativePath` is percent-decoded here, for the second time: the test sees
/// what the system will.
ShareTarget findTarget(const SharedEntry &entry, const ShareRoot &root,
                       const QString &relativePath);

/// Whether visitors may ask for hidden names below a root: only if the user chose to share
/// something hidden.
bool servesHiddenNames(const ShareRoot &root);

/// The path of what findTarget() would find, hidden or not; empty when it is refused. An empty
/// `relativePath` gives `rootPath` untested.
QString resolveSafePath(const QString &rootPath, const QString &relativePath);

} // namespace share
