#include "wechat/cleanlock.h"

#include <QDir>
#include <QFile>
#include <QThread>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace wechat {

namespace {

constexpr int kPollMs = 50;
constexpr int kMaxPolls = 200; // 10 s

} // namespace

CleanLock::CleanLock(const CleanFolders &folders)
    : m_folders(folders)
{}

CleanLock::~CleanLock()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

CleanLock::Result CleanLock::tryLock()
{
    if (m_fd < 0) {
        if (!QDir().mkpath(m_folders.top)) {
            m_error = errno;
            return Result::Unavailable;
        }
        const QByteArray path = QFile::encodeName(m_folders.top + QStringLiteral("/lock"));
        m_fd = ::open(path.constData(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    }
    if (m_fd >= 0 && ::flock(m_fd, LOCK_EX | LOCK_NB) == 0)
        return Result::Locked;
    m_error = errno;
    const bool isBusy = m_fd >= 0 && (m_error == EWOULDBLOCK || m_error == EINTR);
    return isBusy ? Result::Busy : Result::Unavailable;
}

CleanLock::Result CleanLock::lock(const std::function<bool()> &shouldStop)
{
    Result result = tryLock();
    for (int poll = 0; result == Result::Busy && poll < kMaxPolls && !shouldStop(); ++poll) {
        QThread::msleep(kPollMs);
        result = tryLock();
    }
    return result;
}

QString CleanLock::busyMessage()
{
    return QStringLiteral("另一个清理任务正在进行，请稍后再试");
}

} // namespace wechat
