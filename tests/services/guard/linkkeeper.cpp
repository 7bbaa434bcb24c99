#include "linkkeeper.h"

#include "common/text.h"

#include <QDir>
#include <QFile>
#include <QThread>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace guard_test {

namespace {

QByteArray readLink(const QByteArray &path)
{
    char text[4096];
    const ssize_t length = ::readlink(path.constData(), text, sizeof text);
    return length > 0 ? QByteArray(text, int(length)) : QByteArray();
}

QByteArray readAll(const QByteArray &path)
{
    QFile file(QFile::decodeName(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

LinkKeeper::LinkKeeper(const QByteArray &dir)
    : m_dir(dir)
{
    ::mkdir(dir.constData(), 0700);
    load();
}

QByteArray LinkKeeper::file(const QByteArray &id, const char *suffix) const
{
    return m_dir + '/' + id + suffix;
}

/// What a killed process has left: a program may have had the answer and still be about to delete.
void LinkKeeper::load()
{
    const QStringList names =
        QDir(QFile::decodeName(m_dir)).entryList(QDir::AllEntries | QDir::System);
    for (const QString &name : names) {
        if (!name.endsWith(QLatin1String(".path")))
            continue;
        const QByteArray id = QFile::encodeName(name.left(name.size() - 5));
        struct stat content = {};
        if (::lstat(file(id, ".file").constData(), &content) != 0)
            continue;
        KeptFile kept;
        kept.path = readLink(file(id, ".path"));
        kept.inode = content.st_ino;
        kept.isLeft = true;
        m_files.insert(id, kept);
    }
}

bool LinkKeeper::keep(const services::vaultd::Deletion &deletion, QString *id, QString *error)
{
    if (onKeep)
        onKeep();
    if (m_delayMs > 0)
        QThread::msleep(static_cast<unsigned long>(m_delayMs));
    *error = QStringLiteral("refused");
    if (m_isRefusing)
        return false;
    *id = services::newId();
    const QByteArray name = id->toLatin1();
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(deletion.file);
    KeptFile kept;
    kept.path = deletion.originalPath.isEmpty() ? deletion.path : deletion.originalPath;
    kept.peer = deletion.peer;
    kept.isReplaced = deletion.isReplaced;
    struct stat status = {};
    if (::symlink(kept.path.constData(), file(name, ".path").constData()) != 0 ||
        ::linkat(AT_FDCWD, link.constData(), AT_FDCWD, file(name, ".file").constData(),
                 AT_SYMLINK_FOLLOW) != 0 ||
        ::stat(file(name, ".file").constData(), &status) != 0) {
        *error = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    kept.inode = status.st_ino;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_files.insert(name, kept);
    return true;
}

void LinkKeeper::settle(const QString &id, bool isDeleted)
{
    const QByteArray name = id.toLatin1();
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (isDeleted) {
        m_files[name].isSettled = true;
        return;
    }
    m_files.remove(name);
    ::unlink(file(name, ".file").constData());
    ::unlink(file(name, ".path").constData());
    ++m_forgotten;
}

bool LinkKeeper::holds(const struct stat &status, const QByteArray &path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const KeptFile &kept : qAsConst(m_files)) {
        if (kept.inode == status.st_ino && kept.path == path)
            return true;
    }
    return false;
}

QVector<KeptFile> LinkKeeper::files() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    QVector<KeptFile> files;
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
        KeptFile kept = it.value();
        struct stat original = {};
        if (kept.isLeft && ::lstat(kept.path.constData(), &original) == 0 &&
            original.st_ino == kept.inode)
            continue;
        kept.isSettled = kept.isSettled || kept.isLeft;
        kept.content = readAll(file(it.key(), ".file"));
        files.append(kept);
    }
    return files;
}

QVector<KeptFile> LinkKeeper::filesAt(const QByteArray &path) const
{
    QVector<KeptFile> found;
    for (const KeptFile &kept : files()) {
        if (kept.path == path)
            found.append(kept);
    }
    return found;
}

} // namespace guard_test
