#include "vaultd/deploy/preloadlist.h"

#include "vaultd/attributes.h"
#include "vaultd/failure.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr qint64 kMaxBytes = 1024 * 1024;

bool isDivider(char c)
{
    return c == ' ' || c == '\t' || c == ':';
}

QByteArray nameOf(const QByteArray &entry)
{
    return entry.mid(entry.lastIndexOf('/') + 1);
}

bool isSame(const QByteArray &found, const QByteArray &entry)
{
    return found == entry || nameOf(found) == nameOf(entry);
}

/// The line without the entry. *hasIt: it was there; *hasOther: anything else is, a comment too.
QByteArray lineWithout(const QByteArray &line, const QByteArray &entry, bool *hasIt, bool *hasOther)
{
    QByteArray kept;
    const int comment = line.indexOf('#');
    const int end = comment < 0 ? line.size() : comment;
    for (int from = 0; from < end;) {
        int to = from;
        while (to < end && !isDivider(line.at(to)))
            ++to;
        const QByteArray word = line.mid(from, to - from);
        int next = to;
        while (next < end && isDivider(line.at(next)))
            ++next;
        if (!word.isEmpty() && isSame(word, entry)) {
            *hasIt = true;
        } else {
            *hasOther = *hasOther || !word.isEmpty();
            kept += line.mid(from, next - from);
        }
        from = next;
    }
    *hasOther = *hasOther || comment >= 0;
    return kept + line.mid(end);
}

bool writeAll(int fd, const QByteArray &bytes)
{
    for (int done = 0; done < bytes.size();) {
        const ssize_t count = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (count < 0 && errno != EINTR)
            return false;
        done += int(std::max<ssize_t>(0, count));
    }
    return true;
}

bool syncFolderOf(const QByteArray &path)
{
    const int fd = ::open(path.left(path.lastIndexOf('/') + 1).constData(),
                          O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isSynced = fd >= 0 && ::fsync(fd) == 0;
    if (fd >= 0)
        ::close(fd);
    return isSynced;
}

} // namespace

bool listsEntry(const QByteArray &text, const QByteArray &entry)
{
    bool hasIt = false;
    bool hasOther = false;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines)
        lineWithout(line, entry, &hasIt, &hasOther);
    return hasIt;
}

QByteArray withEntry(const QByteArray &text, const QByteArray &entry)
{
    const bool isOpenLine = !text.isEmpty() && !text.endsWith('\n');
    return text + (isOpenLine ? "\n" : "") + entry + '\n';
}

QByteArray withoutEntry(const QByteArray &text, const QByteArray &entry)
{
    QList<QByteArray> kept;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        bool hasIt = false;
        bool hasOther = false;
        const QByteArray rest = lineWithout(line, entry, &hasIt, &hasOther);
        if (!hasIt)
            kept.append(line);
        else if (hasOther)
            kept.append(rest);
    }
    return kept.join('\n');
}

PreloadList::PreloadList(const QString &path)
    : m_path(path)
{
    // Replaced by rename, a link would be cut off from what it leads to.
    const QString target = QFileInfo(path).canonicalFilePath();
    if (!target.isEmpty())
        m_path = target;
}

bool PreloadList::read(Content *content, QString *error) const
{
    *content = Content();
    const int fd = ::open(QFile::encodeName(m_path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return errno == ENOENT || fail(error, QStringLiteral("无法读取 %1").arg(m_path), errno);
    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle) ||
        ::fstat(fd, &content->info) != 0 || !S_ISREG(content->info.st_mode) ||
        content->info.st_size > kMaxBytes)
        return fail(error, QStringLiteral("%1 不是预加载列表").arg(m_path));
    content->isThere = true;
    content->bytes = file.readAll();
    return file.error() == QFileDevice::NoError ||
           fail(error, QStringLiteral("无法读取 %1：%2").arg(m_path, file.errorString()));
}

bool PreloadList::contains(const QByteArray &entry) const
{
    Content content;
    QString error;
    return !entry.isEmpty() && read(&content, &error) && listsEntry(content.bytes, entry);
}

bool PreloadList::add(const QByteArray &entry, QString *error) const
{
    Content former;
    if (!read(&former, error))
        return false;
    return listsEntry(former.bytes, entry) ||
           replace(former, withEntry(former.bytes, entry), error);
}

bool PreloadList::remove(const QByteArray &entry, QString *error) const
{
    Content former;
    if (!read(&former, error))
        return false;
    if (!listsEntry(former.bytes, entry))
        return true;
    const QByteArray rest = withoutEntry(former.bytes, entry);
    if (!rest.trimmed().isEmpty())
        return replace(former, rest, error);
    const QByteArray path = QFile::encodeName(m_path);
    if (::unlink(path.constData()) != 0)
        return fail(error, QStringLiteral("无法删除 %1").arg(m_path), errno);
    syncFolderOf(path);
    return true;
}

bool PreloadList::restore(const Content &content, QString *error) const
{
    if (content.isThere)
        return replace(content, content.bytes, error);
    const QByteArray path = QFile::encodeName(m_path);
    if (::unlink(path.constData()) != 0 && errno != ENOENT)
        return fail(error, QStringLiteral("无法删除 %1").arg(m_path), errno);
    syncFolderOf(path);
    return true;
}

bool PreloadList::replace(const Content &former, const QByteArray &bytes, QString *error) const
{
    const QByteArray path = QFile::encodeName(m_path);
    const QByteArray fresh = path + ".morvane-new";
    const QString what = QStringLiteral("无法写入 %1").arg(m_path);
    ::unlink(fresh.constData()); // Of a process that died.
    const int fd =
        ::open(fresh.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0)
        return fail(error, what, errno);
    const int formerFd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (formerFd >= 0) {
        // A file without its label may be closed to programs.
        copyAttributes(formerFd, fd);
        ::close(formerFd);
    }
    const mode_t mode = former.isThere ? former.info.st_mode & 07777 : 0644;
    const bool isWritten =
        writeAll(fd, bytes) &&
        (!former.isThere || ::fchown(fd, former.info.st_uid, former.info.st_gid) == 0) &&
        ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
    int code = errno;
    ::close(fd);
    if (isWritten && ::rename(fresh.constData(), path.constData()) == 0) {
        syncFolderOf(path);
        return true;
    }
    code = isWritten ? errno : code;
    ::unlink(fresh.constData());
    return fail(error, what, code);
}

} // namespace services::vaultd
