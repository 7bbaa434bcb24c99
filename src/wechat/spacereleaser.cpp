#include "wechat/spacereleaser.h"

#include <QtConcurrent>

#include <unistd.h>

namespace wechat {

namespace {

constexpr int kMostWaiting = 64; // Descriptors are scarce.

} // namespace

SpaceReleaser::SpaceReleaser()
    : m_places(kMostWaiting)
{
    m_pool.setMaxThreadCount(1);
}

void SpaceReleaser::close(int fd)
{
    if (!m_places.tryAcquire()) {
        ::close(fd);
        return;
    }
    QtConcurrent::run(&m_pool, [this, fd] {
        ::close(fd);
        m_places.release();
    });
}

void SpaceReleaser::wait()
{
    m_pool.waitForDone();
}

} // namespace wechat
