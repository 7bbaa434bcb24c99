#pragma once

#include "support/temptree.h"
#include "wechat/cleanactions.h"
#include "wechat/cleanrun.h"
#include "wechat/fileoperations.h"
#include "wechat/interruptedwork.h"
#include "wechat/undorun.h"

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <functional>

inline QString operator""_u(const char *utf8, size_t length)
{
    return QString::fromUtf8(utf8, static_cast<int>(length));
}

/// The real calls with a word to say before each of them.
class HookedOperations : public wechat::FileOperations
{
public:
    /// Asked before each call that changes something or opens a file, by its name and path. 0 lets
    /// it happen, anything else is the errno with which it fails.
    std::function<int(const QString &call, const QString &path)> hook;
    /// Paths with this in them pretend to be on another file system.
    QString otherDevice;
    /// Paths with this in them cannot be looked at: EIO.
    QString unreadable;
    QStringList hashed; ///< Every file read for its hash.

    int open(const QByteArray &path, int flags, mode_t mode) override;
    ssize_t write(int fd, const char *data, size_t length) override;
    int allocate(int fd, off_t bytes) override;
    int fsync(int fd) override;
    int syncfs(int fd) override;
    int stat(const QByteArray &path, struct stat *info) override;
    int lstat(const QByteArray &path, struct stat *info) override;
    int link(const QByteArray &from, const QByteArray &to) override;
    int unlink(const QByteArray &path) override;
    int rename(const QByteArray &from, const QByteArray &to) override;
    int renameNoReplace(const QByteArray &from, const QByteArray &to) override;
    int exchange(const QByteArray &first, const QByteArray &second) override;
    QByteArray fullHash(const QString &path,
                        const DuplicateScanner::StopFunction &shouldStop) override;

private:
    bool refused(const char *call, const QByteArray &path);
    bool isUnreadable(const QByteArray &path) const;
    void moveDevice(const QByteArray &path, struct stat *info) const;
};

/// Content by relative path of all files below a directory; links show where they lead.
QMap<QString, QByteArray> contents(const QString &directory);

/// Two names of one file.
bool linked(const QString &a, const QString &b);

/// An action whose hash is that of the kept file as it is now.
QVariantMap action(const QString &keepPath, const QList<QStringList> &groups);

constexpr int kMaxSteps = 500; ///< Calls; far more than any run here takes.

class CleanBench;
/// Runs `work` in a process of its own that is killed before its `step`th call. True if it was.
bool killedAt(int step, CleanBench &bench, const std::function<void()> &work);

/// A folder with WeChat files and a home for the records, apart from each other.
class CleanBench
{
public:
    CleanBench();

    QString file(const TreePath &name, const QByteArray &content)
    {
        return tree.file(files(name), content);
    }
    QString path(const TreePath &name) const { return tree.path(files(name)); }
    /// Three groups: one with a copy that has two names, one with an odd name, one with many.
    QVariantList fill();
    QMap<QString, QByteArray> snapshot() const { return contents(tree.path("files")); }

    wechat::CleanOutcome clean(const QVariantList &actions);
    wechat::UndoOutcome undo(const QString &sessionId);
    wechat::RecoveryOutcome recover();
    QJsonObject record(const QString &sessionId) const;
    QString status(const QString &sessionId) const;
    QStringList journals() const;
    /// Paths of merged files in the only record, in no order of importance.
    QStringList mergedPaths() const;

    TempTree tree;
    HookedOperations operations;
    wechat::CleanFolders folders;
    std::function<bool()> shouldStop = [] {
        return false;
    };
    QList<QPair<int, int>> progress;

private:
    static QString files(const TreePath &name) { return QStringLiteral("files/") + name.relative; }
};
