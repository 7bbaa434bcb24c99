#include "search/inotifysource.h"

#include <QElapsedTimer>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

/// No IN_MODIFY: a file is looked at when it is closed, not at each write.
const uint32_t watchMask = IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE |
                           IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;
/// About 130,000 events. Beyond this the kernel's queue takes the rest and tells when it overflows.
const int maxKeptBytes = 4 * 1024 * 1024;

} // namespace

InotifySource::~InotifySource()
{
    for (const int fd : {m_fd, m_mountsFd}) {
        if (fd >= 0)
            close(fd);
    }
}

bool InotifySource::open()
{
    m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    m_mountsFd = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
    return m_fd >= 0;
}

bool InotifySource::addWatch(const QString &dir)
{
    if (m_mostWatches > 0 && m_watchPaths.size() >= m_mostWatches && !isWatched(dir))
        return false;
    const int descriptor = inotify_add_watch(m_fd, QFile::encodeName(dir).constData(), watchMask);
    if (descriptor < 0)
        return errno == ENOENT || errno == ENOTDIR;
    forgetWatch(descriptor);
    m_watchPaths.insert(descriptor, dir);
    m_descriptors.insert(dir, descriptor);
    return true;
}

void InotifySource::forgetWatch(int descriptor)
{
    const QString dir = m_watchPaths.take(descriptor);
    // The name may belong to another directory by now.
    if (m_descriptors.value(dir, -1) == descriptor)
        m_descriptors.remove(dir);
}

void InotifySource::removeWatchesInside(const QString &dir)
{
    const QString below = dir + QLatin1Char('/');
    for (auto it = m_watchPaths.begin(); it != m_watchPaths.end();) {
        if (it.value() != dir && !it.value().startsWith(below)) {
            ++it;
            continue;
        }
        inotify_rm_watch(m_fd, it.key());
        m_descriptors.remove(it.value());
        it = m_watchPaths.erase(it);
    }
}

void InotifySource::drain()
{
    while (m_events.size() < maxKeptBytes) {
        const ssize_t count = read(m_fd, m_buffer.data(), m_buffer.size());
        if (count <= 0) {
            if (count < 0 && errno != EINTR && errno != EAGAIN)
                m_failed = true;
            return;
        }
        m_events.append(m_buffer.data(), int(count));
    }
}

QByteArray InotifySource::takeEvents()
{
    QByteArray events;
    events.swap(m_events);
    return events;
}

bool InotifySource::takeMountChange()
{
    const bool changed = m_mountsChanged;
    m_mountsChanged = false;
    return changed;
}

InotifySource::Wake InotifySource::poll(int ms, bool events)
{
    // A descriptor below 0 is passed over.
    pollfd descriptors[] = {{m_wakeFd, POLLIN, 0},
                            {events ? m_fd : -1, POLLIN, 0},
                            {events && !m_mountsChanged ? m_mountsFd : -1, POLLPRI, 0}};
    if (::poll(descriptors, 3, ms) <= 0)
        return Wake::timeout;
    if (descriptors[2].revents != 0)
        m_mountsChanged = true;
    return descriptors[0].revents != 0 ? Wake::stop : Wake::event;
}

void InotifySource::waitForEvents(int idleMs, int gatherMs)
{
    if (!m_events.isEmpty() || poll(idleMs, true) == Wake::event)
        poll(gatherMs, false);
}

void InotifySource::sleep(int ms)
{
    QElapsedTimer timer;
    timer.start();
    for (qint64 left = ms; left > 0; left = ms - timer.elapsed()) {
        // A full store must not make this a busy loop.
        const bool room = m_events.size() < maxKeptBytes && !m_failed;
        if (poll(int(left), room) == Wake::stop)
            return;
        drain();
    }
}
