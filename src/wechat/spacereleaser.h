#pragma once

#include <QSemaphore>
#include <QThreadPool>

namespace wechat {

/// Closes descriptors of removed files on a thread of its own. With the last of them the room of
/// the file becomes free, for which some file systems take a good part of the time of a merge.
class SpaceReleaser
{
public:
    SpaceReleaser();
    SpaceReleaser(const SpaceReleaser &) = delete;
    SpaceReleaser &operator=(const SpaceReleaser &) = delete;

    /// Takes over the descriptor. When too many are waiting, the caller does the work.
    void close(int fd);
    /// Returns when all room is free, as does the destructor.
    void wait();

private:
    QSemaphore m_places;
    QThreadPool m_pool;
};

} // namespace wechat
