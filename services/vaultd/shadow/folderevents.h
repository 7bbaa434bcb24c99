#pragma once

#include "core/descriptor.h"

#include <QByteArray>
#include <QVector>

namespace services::vaultd {

/// A change of one name in one folder.
struct FolderEvent
{
    quint64 mask = 0;  ///< FAN_CREATE, FAN_DELETE …; FAN_Q_OVERFLOW alone: events were lost.
    QByteArray folder; ///< The folder's key, as folderKey() gives it.
    QByteArray name;
};

/// The kernel's name for a folder, which stays the same when the folder is renamed; empty if the
/// file system has none. `fd` may be open with O_PATH.
QByteArray folderKey(int fd);
/// Opens the folder again, wherever it is now; -1 if it is gone. `mountFd`: anything open on that
/// file system.
int openFolderByKey(int mountFd, const QByteArray &key);

/// Tells of changed names and files in folders. Needs root.
class FolderEvents
{
public:
    /// Watches the file system that the open folder is on. Where that is not possible, each folder
    /// has to be watched by watch().
    [[nodiscard]] bool open(int folder);
    bool watchesAll() const { return m_watchesAll; }
    [[nodiscard]] bool watch(int folder);
    /// For poll(2).
    int descriptor() const { return m_fd.get(); }
    /// What has happened since the last call; never waits.
    QVector<FolderEvent> read();

private:
    core::Descriptor m_fd{-1};
    bool m_watchesAll = false;
};

} // namespace services::vaultd
