#include "vaultd/hook/spool.h"

#include "core/descriptor.h"
#include "core/directorystream.h"
#include "core/posixfile.h"
#include "guard/guardprotocol.h"
#include "vaultd/failure.h"
#include "vaultd/keep/keeper.h"

#include <QDebug>
#include <QFile>

#include <cerrno>
#include <climits>
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>

namespace services::vaultd {

namespace {

/// A program that has linked its file deletes it next; one that was killed in between never does.
constexpr time_t kMaxSecondsToDelete = 10;

int openSpool(const QByteArray &dir)
{
    return ::open(dir.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

QList<QByteArray> idsIn(int folder)
{
    QList<QByteArray> ids;
    const int own = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const core::DirectoryStream stream(own < 0 ? nullptr : ::fdopendir(own));
    while (const dirent *entry = stream ? ::readdir(stream.get()) : nullptr) {
        QByteArray name(entry->d_name);
        if (name.endsWith(GUARD_SPOOL_PATH_SUFFIX)) {
            name.chop(int(sizeof GUARD_SPOOL_PATH_SUFFIX) - 1);
            ids.append(name);
        }
    }
    return ids;
}

} // namespace

struct Spool::Entry
{
    int folder = -1;
    QByteArray id;
    QByteArray path; ///< That the file had.
    core::Descriptor file{-1};
    struct stat status = {};
    time_t linkedAt = 0;

    QByteArray pathName() const { return id + GUARD_SPOOL_PATH_SUFFIX; }
    QByteArray fileName() const { return id + GUARD_SPOOL_FILE_SUFFIX; }
};

Spool::Spool(const UserIdentity &user, const TrashIndex &trash, const FilesInHand &inHand,
             const HookService::KeeperOf &keeperOf)
    : m_user(user)
    , m_trash(trash)
    , m_inHand(inHand)
    , m_keeperOf(keeperOf)
{}

bool Spool::prepare(const UserIdentity &user, const QByteArray &dir, quint64 *device,
                    QString *error)
{
    const ActAs rights(user);
    if (!rights.isActive(error))
        return false;
    for (int end = dir.indexOf('/', 1); end > 0; end = dir.indexOf('/', end + 1))
        ::mkdir(dir.left(end).constData(), 0700); // Those that are missing.
    ::mkdir(dir.constData(), 0700);
    const core::Descriptor folder(openSpool(dir));
    struct stat status;
    if (!folder.isOpen() || ::fstat(folder.get(), &status) != 0 || status.st_uid != user.uid ||
        ::fchmod(folder.get(), 0700) != 0)
        return fail(error, QStringLiteral("无法建立暂存目录 %1").arg(QFile::decodeName(dir)),
                    folder.isOpen() && errno == 0 ? EPERM : errno);
    *device = status.st_dev;
    return true;
}

bool Spool::adopt(const QByteArray &dir)
{
    QString error;
    core::Descriptor folder(-1);
    QList<QByteArray> ids;
    {
        const ActAs rights(m_user);
        if (!rights.isActive(&error))
            return false;
        folder.reset(openSpool(dir));
        if (folder.isOpen())
            ids = idsIn(folder.get());
    }
    bool isAllDone = true;
    for (const QByteArray &id : qAsConst(ids)) {
        Entry entry;
        entry.folder = folder.get();
        entry.id = id;
        isAllDone = adoptEntry(entry) == Result::Done && isAllDone;
    }
    return isAllDone;
}

/// False for what is no entry, or not the user's own file.
bool Spool::read(Entry *entry) const
{
    QString error;
    const ActAs rights(m_user);
    char path[PATH_MAX];
    struct stat link;
    if (!rights.isActive(&error) ||
        ::fstatat(entry->folder, entry->pathName().constData(), &link, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    entry->linkedAt = link.st_ctime;
    const ssize_t length =
        ::readlinkat(entry->folder, entry->pathName().constData(), path, sizeof path);
    entry->file.reset(
        ::openat(entry->folder, entry->fileName().constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (length <= 1 || length >= ssize_t(sizeof path) || path[0] != '/' ||
        path[length - 1] == '/' || !entry->file.isOpen() ||
        ::fstat(entry->file.get(), &entry->status) != 0)
        return false;
    entry->path = QByteArray(path, int(length));
    return S_ISREG(entry->status.st_mode) && entry->status.st_uid == m_user.uid;
}

bool Spool::isStillThere(const Entry &entry) const
{
    QString error;
    const ActAs rights(m_user);
    struct stat named;
    return rights.isActive(&error) && ::lstat(entry.path.constData(), &named) == 0 &&
           named.st_dev == entry.status.st_dev && named.st_ino == entry.status.st_ino;
}

void Spool::drop(const Entry &entry) const
{
    QString error;
    const ActAs rights(m_user);
    if (!rights.isActive(&error))
        return;
    ::unlinkat(entry.folder, entry.fileName().constData(), 0);
    ::unlinkat(entry.folder, entry.pathName().constData(), 0);
}

Spool::Result Spool::adoptEntry(const Entry &found)
{
    Entry entry;
    entry.folder = found.folder;
    entry.id = found.id;
    const bool isComplete = read(&entry);
    const bool isFresh = ::time(nullptr) - entry.linkedAt <= kMaxSecondsToDelete;
    if (!isComplete || isStillThere(entry)) {
        if (isFresh)
            return Result::Later;
        // Never deleted, or never linked. What is not this user's plain file is left alone.
        if (isComplete || !entry.file.isOpen())
            drop(entry);
        return Result::Done;
    }
    if (m_inHand.contains({entry.status.st_dev, entry.status.st_ino}))
        return Result::Later;
    Keeper *keeper = m_keeperOf(m_user.uid);
    if (!keeper)
        return Result::Later;
    if (keeper->holds(entry.status, entry.path)) {
        drop(entry);
        return Result::Done;
    }
    Deletion deletion;
    deletion.file = entry.file.get();
    deletion.path = entry.path;
    deletion.peer = m_user.uid;
    if (!m_trash.find(entry.path, &deletion.originalPath))
        deletion.originalPath.clear();
    QString id;
    QString error;
    if (!keeper->keep(deletion, &id, &error)) {
        qWarning("morvane-vaultd: a spooled file cannot be kept: %s", qUtf8Printable(error));
        return Result::Later;
    }
    drop(entry);
    keeper->settle(id, true);
    return Result::Done;
}

} // namespace services::vaultd
