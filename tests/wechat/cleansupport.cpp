#include "wechat/cleansupport.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

bool HookedOperations::refused(const char *call, const QByteArray &path)
{
    const int code = hook ? hook(QString::fromLatin1(call), QFile::decodeName(path)) : 0;
    errno = code;
    return code != 0;
}

bool HookedOperations::isUnreadable(const QByteArray &path) const
{
    errno = EIO;
    return !unreadable.isEmpty() && QFile::decodeName(path).contains(unreadable);
}

void HookedOperations::moveDevice(const QByteArray &path, struct stat *info) const
{
    if (!otherDevice.isEmpty() && QFile::decodeName(path).contains(otherDevice))
        info->st_dev += 1;
}

int HookedOperations::open(const QByteArray &path, int flags, mode_t mode)
{
    return refused("open", path) ? -1 : FileOperations::open(path, flags, mode);
}

ssize_t HookedOperations::write(int fd, const char *data, size_t length)
{
    // In two steps, so that a kill can cut a write in half.
    const size_t half = length > 1 ? length / 2 : length;
    return refused("write", QByteArray()) ? -1 : FileOperations::write(fd, data, half);
}

int HookedOperations::allocate(int fd, off_t bytes)
{
    return refused("allocate", QByteArray()) ? -1 : FileOperations::allocate(fd, bytes);
}

int HookedOperations::fsync(int)
{
    // What is killed here is the program, never the machine: nothing needs to reach the disk.
    return refused("fsync", QByteArray()) ? -1 : 0;
}

int HookedOperations::syncfs(int)
{
    return refused("syncfs", QByteArray()) ? -1 : 0;
}

int HookedOperations::stat(const QByteArray &path, struct stat *info)
{
    if (isUnreadable(path))
        return -1;
    const int result = FileOperations::stat(path, info);
    moveDevice(path, info);
    return result;
}

int HookedOperations::lstat(const QByteArray &path, struct stat *info)
{
    if (isUnreadable(path))
        return -1;
    const int result = FileOperations::lstat(path, info);
    moveDevice(path, info);
    return result;
}

int HookedOperations::link(const QByteArray &from, const QByteArray &to)
{
    return refused("link", to) ? -1 : FileOperations::link(from, to);
}

int HookedOperations::unlink(const QByteArray &path)
{
    return refused("unlink", path) ? -1 : FileOperations::unlink(path);
}

int HookedOperations::rename(const QByteArray &from, const QByteArray &to)
{
    return refused("rename", from) ? -1 : FileOperations::rename(from, to);
}

int HookedOperations::renameNoReplace(const QByteArray &from, const QByteArray &to)
{
    return refused("renameNoReplace", from) ? -1 : FileOperations::renameNoReplace(from, to);
}

int HookedOperations::exchange(const QByteArray &first, const QByteArray &second)
{
    return refused("exchange", first) ? -1 : FileOperations::exchange(first, second);
}

QByteArray HookedOperations::fullHash(const QString &path,
                                      const DuplicateScanner::StopFunction &shouldStop)
{
    hashed.append(path);
    return refused("hash", QFile::encodeName(path)) ? QByteArray()
                                                    : FileOperations::fullHash(path, shouldStop);
}

QMap<QString, QByteArray> contents(const QString &directory)
{
    QMap<QString, QByteArray> result;
    QDirIterator it(directory, QDir::Files | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        const QString target = it.fileInfo().symLinkTarget();
        result.insert(QDir(directory).relativeFilePath(path),
                      it.fileInfo().isSymLink()        ? "-> " + target.toUtf8()
                      : file.open(QIODevice::ReadOnly) ? file.readAll()
                                                       : QByteArrayLiteral("<unreadable>"));
    }
    return result;
}

bool linked(const QString &a, const QString &b)
{
    wechat::FileOperations operations;
    return wechat::identify(operations, a).sameFile(wechat::identify(operations, b));
}

QVariantMap action(const QString &keepPath, const QList<QStringList> &groups)
{
    QStringList replaced;
    QVariantList maps;
    for (const QStringList &group : groups) {
        replaced += group;
        maps.append(QVariantMap{{QStringLiteral("path"), group.value(0)},
                                {QStringLiteral("aliasPaths"), group}});
    }
    const QByteArray hash = DuplicateScanner::fullHash(keepPath, [] { return false; });
    return {{QStringLiteral("keepPath"), keepPath},
            {QStringLiteral("size"), QFileInfo(keepPath).size()},
            {QStringLiteral("hash"), QString::fromLatin1(hash.toHex())},
            {QStringLiteral("replacePaths"), replaced},
            {QStringLiteral("replaceGroups"), maps}};
}

bool killedAt(int step, CleanBench &bench, const std::function<void()> &work)
{
    const pid_t child = ::fork();
    if (child == 0) {
        const auto before = bench.operations.hook;
        bench.operations.hook = [before, step, n = 0](const QString &call,
                                                      const QString &path) mutable {
            if (++n == step)
                ::kill(::getpid(), SIGKILL);
            return before ? before(call, path) : 0;
        };
        work();
        ::_exit(0);
    }
    int status = -1;
    if (::waitpid(child, &status, 0) != child || (!WIFSIGNALED(status) && WEXITSTATUS(status) != 0))
        qFatal("the child did not end as it should");
    return WIFSIGNALED(status);
}

CleanBench::CleanBench()
    : folders(tree.dir("home"))
{
    tree.dir("files");
}

QVariantList CleanBench::fill()
{
    const QByteArray first(10000, 'a');
    const QByteArray second("second 内容");
    const QByteArray third("third");
    const QString keep1 = file("msg/keep", first);
    const QString copy1 = file("msg/copy", first);
    const QString named1 = file("other/two names", first);
    const QString alias1 = path("msg/another name");
    if (::link(QFile::encodeName(named1).constData(), QFile::encodeName(alias1).constData()) != 0)
        qFatal("cannot link");
    const QString keep2 = file("msg/2024-03/图片.jpg", second);
    const QString copy2 = file("msg/2024-04/ 换\n行\"'$(x) ", second);
    file("msg/alone", "nothing like it");
    QList<QStringList> many;
    for (int i = 0; i < 3; ++i)
        many.append({file(QStringLiteral("many/%1").arg(i), third)});
    const QString keep3 = file("many/keep", third);
    return {action(keep1, {{copy1}, {alias1, named1}}), action(keep2, {{copy2}}),
            action(keep3, many)};
}

wechat::CleanOutcome CleanBench::clean(const QVariantList &actions)
{
    progress.clear();
    wechat::CleanRun run(operations, folders, shouldStop, [this](int done, int total) {
        progress.append({done, total});
    });
    return run.run(wechat::parseActions(actions));
}

wechat::UndoOutcome CleanBench::undo(const QString &sessionId)
{
    return wechat::UndoRun(operations, folders).run(sessionId);
}

wechat::RecoveryOutcome CleanBench::recover()
{
    return wechat::InterruptedWork(operations, folders, shouldStop).run();
}

QJsonObject CleanBench::record(const QString &sessionId) const
{
    QJsonObject result;
    return wechat::readRecord(folders, sessionId, &result) ? result : QJsonObject();
}

QString CleanBench::status(const QString &sessionId) const
{
    return record(sessionId).value("status"_u).toString();
}

QStringList CleanBench::journals() const
{
    return QDir(folders.journal).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

QStringList CleanBench::mergedPaths() const
{
    QStringList result;
    const QStringList names = QDir(folders.operations).entryList(QDir::Files, QDir::Name);
    for (const QString &name : names) {
        const QJsonArray actions =
            record(QFileInfo(name).completeBaseName()).value(QStringLiteral("actions")).toArray();
        for (const QJsonValue &value : actions) {
            const QJsonArray paths =
                value.toObject().value(QStringLiteral("mergedPaths")).toArray();
            for (const QJsonValue &path : paths)
                result.append(path.toString());
        }
    }
    result.sort();
    return result;
}
