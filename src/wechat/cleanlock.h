#pragma once

#include "wechat/operationrecord.h"

#include <functional>

namespace wechat {

/// Keeps cleans, undos and the putting right of interrupted ones apart, between threads as well as
/// between processes. The kernel gives it free when its holder ends, however that happens.
class CleanLock
{
public:
    enum class Result { Locked, Busy, Unavailable };

    explicit CleanLock(const CleanFolders &folders);
    ~CleanLock();
    CleanLock(const CleanLock &) = delete;
    CleanLock &operator=(const CleanLock &) = delete;

    Result tryLock();
    /// Waits some seconds for another holder; a stop ends the wait.
    Result lock(const std::function<bool()> &shouldStop);

    /// The errno value of Unavailable.
    int error() const { return m_error; }

    /// What to tell when another one holds it.
    static QString busyMessage();

private:
    CleanFolders m_folders;
    int m_fd = -1;
    int m_error = 0;
};

} // namespace wechat
