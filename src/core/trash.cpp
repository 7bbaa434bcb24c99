#include "core/trash.h"

#include "core/descriptor.h"
#include "core/saferename.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace core {

namespace {

constexpr mode_t kPrivateDir = 0700;
constexpr mode_t kPrivateFile = 0600;
constexpr int kMaxNames = 100000; ///< Names tried for one file.
const char kInfoSuffix[] = ".trashinfo";
constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// The path by which the kernel knows an open directory; empty if it has none.
QByteArray pathOf(int fd)
{
    QByteArray target(PATH_MAX, Qt::Uninitialized);
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(fd);
    const ssize_t length = ::readlink(link.constData(), target.data(), size_t(target.size()));
    if (length <= 0 || length >= target.size() || target.at(0) != '/')
        return QByteArray();
    target.truncate(int(length));
    return target;
}

QByteArray joined(const QByteArray &dir, const QByteArray &name)
{
    return dir.endsWith('/') ? dir + name : dir + '/' + name;
}

bool isWithin(const QByteArray &path, const QByteArray &dir)
{
    return !dir.isEmpty() && (path == dir || path.startsWith(joined(dir, QByteArray())));
}

/// Tells bound directories of one file system apart, between which no rename works; -1 if unknown.
qint64 mountId(int fd)
{
    QFile info(QStringLiteral("/proc/self/fdinfo/%1").arg(fd));
    if (!info.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : info.readAll().split('\n')) {
        if (line.startsWith("mnt_id:"))
            return line.mid(int(sizeof("mnt_id:")) - 1).trimmed().toLongLong();
    }
    return -1;
}

bool isSameMount(int dir, int parent)
{
    struct stat inner;
    struct stat outer;
    return ::fstat(dir, &inner) == 0 && ::fstat(parent, &outer) == 0 &&
           inner.st_dev == outer.st_dev && mountId(dir) == mountId(parent);
}

bool isSameDirectory(int a, int b)
{
    struct stat first;
    struct stat second;
    return ::fstat(a, &first) == 0 && ::fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

/// The top directory of the volume that an open directory is on; -1 with errno.
int openTopDirectory(int dirFd)
{
    Descriptor top(::openat(dirFd, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    while (top.isOpen()) {
        Descriptor parent(::openat(top.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!parent.isOpen())
            return -1;
        if (isSameDirectory(top.get(), parent.get()) || !isSameMount(top.get(), parent.get()))
            break;
        top.reset(parent.release());
    }
    return top.release();
}

/// Opens a directory that is no link, made if it is missing; -1 with errno.
int openOwnDirectory(int parent, const QByteArray &name)
{
    if (::mkdirat(parent, name.constData(), kPrivateDir) != 0 && errno != EEXIST)
        return -1;
    Descriptor dir(::openat(parent, name.constData(), kDirFlags | O_NOFOLLOW));
    struct stat info;
    if (!dir.isOpen() || ::fstat(dir.get(), &info) != 0)
        return -1;
    if (info.st_uid != ::geteuid()) { // Its owner could read and exchange what comes in.
        errno = EPERM;
        return -1;
    }
    return dir.release();
}

/// The administrator's ".Trash" counts only as a directory with the sticky bit set.
int openSharedTrash(int top, const QByteArray &uid)
{
    const Descriptor shared(::openat(top, ".Trash", kDirFlags | O_NOFOLLOW));
    struct stat info;
    if (!shared.isOpen() || ::fstat(shared.get(), &info) != 0 || (info.st_mode & S_ISVTX) == 0)
        return -1;
    return openOwnDirectory(shared.get(), uid);
}

int openVolumeTrash(int top)
{
    const QByteArray uid = QByteArray::number(qulonglong(::geteuid()));
    const int shared = openSharedTrash(top, uid);
    return shared >= 0 ? shared : openOwnDirectory(top, ".Trash-" + uid);
}

int openHomeTrash(const QByteArray &path)
{
    for (int slash = path.indexOf('/', 1);; slash = path.indexOf('/', slash + 1)) {
        const QByteArray part = slash < 0 ? path : path.left(slash);
        if (::mkdir(part.constData(), kPrivateDir) != 0 && errno != EEXIST)
            return -1;
        if (slash < 0)
            break;
    }
    return ::open(path.constData(), kDirFlags);
}

/// `name` as the base of names in a trash, with room for what is added to it.
QByteArray trashedBase(const QByteArray &name)
{
    const int room = NAME_MAX - int(sizeof(kInfoSuffix)) - 7;
    if (name.size() <= room)
        return name;
    int end = room;
    while (end > 1 && (name.at(end) & 0xC0) == 0x80) // Not inside a character.
        --end;
    return name.left(end);
}

QByteArray infoText(const QByteArray &originalPath)
{
    const QString now =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-ddThh:mm:ss"));
    return "[Trash Info]\nPath=" + originalPath.toPercentEncoding("/") +
           "\nDeletionDate=" + now.toLatin1() + '\n';
}

/// Writes a new file and flushes it. 0 or an errno value; EEXIST if the name is taken.
int writeInfo(int infoDir, const QByteArray &name, const QByteArray &text)
{
    Descriptor file(::openat(infoDir, name.constData(),
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivateFile));
    if (!file.isOpen())
        return errno;
    const ssize_t written = ::write(file.get(), text.constData(), size_t(text.size()));
    int code = written == text.size() ? 0 : written < 0 ? errno : ENOSPC;
    if (code == 0 && ::fsync(file.get()) != 0)
        code = errno;
    if (code == 0 && ::fsync(infoDir) != 0)
        code = errno;
    if (code != 0)
        ::unlinkat(infoDir, name.constData(), 0);
    return code;
}

/// One file on its way into one trash.
struct Move
{
    int dirFd;
    const QByteArray &name;
    const QByteArray originalPath; ///< As the trash notes it.
    const FileIdentity &expected;
};

/// The rename, undone if it met another file than the expected one.
int moveChecked(const Move &move, int filesDir, const QByteArray &trashed)
{
    const int code = renameToFreeAt(move.dirFd, move.name, filesDir, trashed);
    if (code != 0 || identityAt(filesDir, trashed.constData()).isUnchanged(move.expected))
        return code;
    if (renameToFreeAt(filesDir, trashed, move.dirFd, move.name) == 0)
        return ESTALE;
    qWarning() << "[Trash] another file took the name of" << move.originalPath
               << "while it was moved; it stays in the trash";
    return 0;
}

int moveInto(int trash, const Move &move)
{
    const Descriptor infoDir(openOwnDirectory(trash, "info"));
    if (!infoDir.isOpen())
        return errno;
    const Descriptor filesDir(openOwnDirectory(trash, "files"));
    if (!filesDir.isOpen())
        return errno;
    const QByteArray base = trashedBase(move.name);
    const QByteArray text = infoText(move.originalPath);
    for (int number = 1; number <= kMaxNames; ++number) {
        const QByteArray trashed = number == 1 ? base : base + '.' + QByteArray::number(number);
        int code = writeInfo(infoDir.get(), trashed + kInfoSuffix, text);
        if (code == EEXIST)
            continue;
        if (code != 0)
            return code;
        code = moveChecked(move, filesDir.get(), trashed);
        if (code == 0)
            return 0;
        ::unlinkat(infoDir.get(), (trashed + kInfoSuffix).constData(), 0);
        if (code != EEXIST) // A file without a note may have the name.
            return code;
    }
    return EEXIST;
}

} // namespace

Trash::Trash(const QByteArray &homeTrash)
    : m_homeTrash(homeTrash)
{}

QByteArray Trash::defaultHomeTrash()
{
    const QByteArray dataHome = qgetenv("XDG_DATA_HOME");
    // Relative paths are to be ignored there.
    const QByteArray base =
        dataHome.startsWith('/') ? dataHome : QFile::encodeName(QDir::homePath()) + "/.local/share";
    return base + "/Trash";
}

int Trash::put(int dirFd, const QByteArray &name, const QByteArray &path,
               const FileIdentity &expected) const
{
    const QByteArray dirPath = pathOf(dirFd);
    struct stat info;
    const Descriptor home(openHomeTrash(m_homeTrash));
    if (home.isOpen() && isWithin(dirPath, pathOf(home.get())))
        return EALREADY;
    if (home.isOpen() && ::fstat(home.get(), &info) == 0 &&
        quint64(info.st_dev) == expected.device) {
        const int code = moveInto(home.get(), {dirFd, name, path, expected});
        // A bound directory is out of reach although it is of the same file system.
        if (code != EXDEV)
            return code;
    }
    const Descriptor top(openTopDirectory(dirFd));
    if (!top.isOpen())
        return errno;
    const QByteArray topPath = pathOf(top.get());
    if (!isWithin(dirPath, topPath))
        return EXDEV;
    const Descriptor trash(openVolumeTrash(top.get()));
    if (!trash.isOpen())
        return errno == ENOSPC || errno == EDQUOT || errno == EROFS ? errno : EXDEV;
    if (isWithin(dirPath, pathOf(trash.get())))
        return EALREADY;
    // Relative, since the volume may be mounted elsewhere when the file is restored.
    const QByteArray inVolume = joined(dirPath, name).mid(joined(topPath, QByteArray()).size());
    return moveInto(trash.get(), {dirFd, name, inVolume, expected});
}

} // namespace core
