#include "search/filemover.h"

#include "core/saferename.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace filemover {

namespace {

constexpr int kMaxCounter = 999;
constexpr int kCopyChunkBytes = 1024 * 1024;

/// Outcome of a step: 0, or an errno value and what to tell about it.
struct Step
{
    int code = 0;
    QString message;

    bool ok() const { return code == 0; }
};

Step failed(int code)
{
    return {code, qt_error_string(code)};
}

class Descriptor
{
public:
    explicit Descriptor(int fd)
        : m_fd(fd)
    {}
    ~Descriptor() { (void)close(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }
    int close()
    {
        const int result = m_fd >= 0 ? ::close(m_fd) : 0;
        m_fd = -1;
        return result;
    }

private:
    int m_fd;
};

bool nameTaken(const QString &path)
{
    struct stat info;
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

/// Unlike QFile::rename it never copies.
Step renameToFree(const QByteArray &from, const QByteArray &to)
{
    const int code = core::renameToFree(from, to);
    return code == 0 ? Step() : failed(code);
}

Step writeAll(int fd, const char *data, ssize_t length)
{
    while (length > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(length));
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return failed(errno);
        data += written;
        length -= written;
    }
    return {};
}

Step copyBytes(int from, int to)
{
    QByteArray buffer(kCopyChunkBytes, Qt::Uninitialized);
    for (;;) {
        const ssize_t got = ::read(from, buffer.data(), static_cast<size_t>(buffer.size()));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return failed(errno);
        if (got == 0)
            return {};
        const Step step = writeAll(to, buffer.constData(), got);
        if (!step.ok())
            return step;
    }
}

QString changedMessage()
{
    return QStringLiteral("文件在移动过程中被修改。");
}

bool sameState(const struct stat &a, const struct stat &b)
{
    return a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

/// Owner first, since a change of owner clears the set-id bits of the mode; where the owner cannot
/// be kept those bits must not survive either.
Step copyAttributes(const struct stat &info, int to)
{
    const bool ownerKept = ::fchown(to, info.st_uid, info.st_gid) == 0;
    if (::fchmod(to, info.st_mode & (ownerKept ? 07777U : 0777U)) != 0 && errno != EPERM &&
        errno != EOPNOTSUPP)
        return failed(errno);
    const struct timespec times[2] = {info.st_atim, info.st_mtim};
    if (::futimens(to, times) != 0 && errno != EPERM)
        return failed(errno);
    return ::fsync(to) == 0 ? Step() : failed(errno);
}

/// Makes the new name durable before the source goes. Some network file systems refuse to flush a
/// directory and flush by themselves.
Step flushDirectory(const QByteArray &directory)
{
    Descriptor fd(::open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.isOpen())
        return errno == EACCES ? Step() : failed(errno);
    if (::fsync(fd.get()) != 0 && errno != EINVAL && errno != EOPNOTSUPP)
        return failed(errno);
    return {};
}

Step fillTemporary(int from, int to)
{
    struct stat before;
    struct stat after;
    if (::fstat(from, &before) != 0)
        return failed(errno);
    Step step = copyBytes(from, to);
    if (step.ok())
        step = copyAttributes(before, to);
    if (!step.ok())
        return step;
    if (::fstat(from, &after) != 0)
        return failed(errno);
    if (!sameState(before, after))
        return {EBUSY, changedMessage()};
    return {};
}

Step copyFile(const QByteArray &source, const QByteArray &target)
{
    Descriptor from(::open(source.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!from.isOpen())
        return failed(errno);
    const int slash = target.lastIndexOf('/');
    const QByteArray directory = slash > 0 ? target.left(slash) : QByteArray("/");
    // The index passes over names that begin like this, so an unfinished copy never shows up.
    QByteArray temporary = directory + "/.~morvane-move.XXXXXX";
    Descriptor to(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!to.isOpen())
        return failed(errno);
    Step step = fillTemporary(from.get(), to.get());
    if (step.ok() && to.close() != 0)
        step = failed(errno);
    if (step.ok())
        step = renameToFree(temporary, target);
    if (!step.ok()) {
        ::unlink(temporary.constData());
        return step;
    }
    step = flushDirectory(directory);
    if (!step.ok())
        ::unlink(target.constData());
    return step;
}

Step copyLink(const QByteArray &source, const QByteArray &target)
{
    QByteArray text(PATH_MAX, Qt::Uninitialized);
    const ssize_t length =
        ::readlink(source.constData(), text.data(), static_cast<size_t>(text.size()));
    if (length < 0)
        return failed(errno);
    if (length >= text.size())
        return failed(ENAMETOOLONG);
    text.truncate(static_cast<int>(length));
    return ::symlink(text.constData(), target.constData()) == 0 ? Step() : failed(errno);
}

Step moveAcross(const QByteArray &source, const QByteArray &target)
{
    struct stat info;
    if (::lstat(source.constData(), &info) != 0)
        return failed(errno);
    if (!S_ISREG(info.st_mode) && !S_ISLNK(info.st_mode))
        return {EINVAL, QStringLiteral("只能移动普通文件。")};
    const Step step = S_ISLNK(info.st_mode) ? copyLink(source, target) : copyFile(source, target);
    if (!step.ok())
        return step;
    // A program that saves by rename may have put another file under the name meanwhile.
    struct stat now;
    const bool sameFile = ::lstat(source.constData(), &now) == 0 && now.st_dev == info.st_dev &&
                          now.st_ino == info.st_ino && sameState(info, now);
    if (!sameFile) {
        ::unlink(target.constData());
        return {EBUSY, changedMessage()};
    }
    if (::unlink(source.constData()) == 0)
        return {};
    const int code = errno;
    ::unlink(target.constData());
    return failed(code);
}

bool report(const Step &step, QString *error)
{
    if (!step.ok() && error)
        *error = step.message;
    return step.ok();
}

} // namespace

QString uniqueTargetPath(const QString &directory, const QString &fileName)
{
    const QDir target(directory);
    QString path = target.absoluteFilePath(fileName);
    if (!nameTaken(path))
        return path;
    const QFileInfo info(fileName);
    const QString base = info.completeBaseName();
    const QString suffix = info.suffix();
    for (int counter = 1; counter <= kMaxCounter; ++counter) {
        const QString number = QString::number(counter);
        const QString name = suffix.isEmpty()
                                 ? QStringLiteral("%1_%2").arg(base, number)
                                 : QStringLiteral("%1_%2.%3").arg(base, number, suffix);
        path = target.absoluteFilePath(name);
        if (!nameTaken(path))
            return path;
    }
    return QString();
}

bool moveByCopy(const QString &source, const QString &target, QString *error)
{
    return report(moveAcross(QFile::encodeName(source), QFile::encodeName(target)), error);
}

bool moveInto(const QString &source, const QString &directory, QString *newPath, QString *error)
{
    const QFileInfo info(source);
    const QString folder = info.absoluteDir().canonicalPath();
    if (!folder.isEmpty() && folder == QFileInfo(directory).canonicalFilePath()) {
        if (!nameTaken(source))
            return report(failed(ENOENT), error);
        *newPath = source;
        return true;
    }
    // A name that someone takes between the choice and the rename sends us to the next one.
    for (int attempt = 0; attempt <= kMaxCounter; ++attempt) {
        const QString target = uniqueTargetPath(directory, info.fileName());
        if (target.isEmpty())
            return report(failed(EEXIST), error);
        const QByteArray from = QFile::encodeName(source);
        const QByteArray to = QFile::encodeName(target);
        Step step = renameToFree(from, to);
        if (!step.ok() && step.code != EEXIST && step.code != ENOENT)
            step = moveAcross(from, to);
        if (step.code == EEXIST)
            continue;
        if (step.ok())
            *newPath = target;
        return report(step, error);
    }
    return report(failed(EEXIST), error);
}

} // namespace filemover
