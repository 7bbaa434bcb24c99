#pragma once

#include "wechat/fileoperations.h"
#include "wechat/operationrecord.h"

#include <functional>

namespace wechat {

/// A file beside the journal whose room is given up when the disk is full: freeing space must not
/// fail for want of the few kilobytes that its journal and record take. Any thread.
class SpaceReserve
{
public:
    static constexpr qint64 kBytes = 4 * 1024 * 1024; ///< Journal and record of 10,000 paths.

    SpaceReserve(FileOperations &operations, const CleanFolders &folders);

    /// Makes the folders and the file. On a nearly full disk the file is smaller; without any room
    /// there is none, and the next start tries again.
    void fill();
    /// Fills up a reserve that has been used; none is made.
    void refill();
    /// Runs `work`, which returns 0 or an errno value. If that is for want of room, gives up about
    /// `bytes` of the reserve and runs it once more. Returns the last value.
    int use(qint64 bytes, const std::function<int()> &work);

private:
    bool give(qint64 bytes);

    FileOperations &m_operations;
    CleanFolders m_folders;
};

} // namespace wechat
