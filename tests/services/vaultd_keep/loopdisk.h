#pragma once

#include "support/temptree.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <sys/types.h>

/// A file system of its own on an image file, mounted in this process's private mounts.
class LoopDisk
{
public:
    /// `type`: "ext4", "xfs" or "btrfs".
    LoopDisk(TempTree &tree, const QByteArray &type, const char *name);
    ~LoopDisk();
    LoopDisk(const LoopDisk &) = delete;
    LoopDisk &operator=(const LoopDisk &) = delete;

    /// False where the tools or the rights for it are missing.
    bool isMounted() const { return m_isMounted; }
    QString path(const QString &relative) const
    {
        return m_mountPoint + QLatin1Char('/') + relative;
    }
    const QString &mountPoint() const { return m_mountPoint; }
    /// Writes until nothing fits any more; what was written is removed by empty().
    void fill() const;
    void empty() const;

private:
    QString m_mountPoint;
    bool m_isMounted = false;
};

constexpr uid_t kUser = 4711;
constexpr uid_t kStranger = 4712;

/// Runs `work` in a process of that user, and tells whether it returned true.
bool asUser(uid_t uid, const std::function<bool()> &work);

/// A file of kUser with a content; its directory exists.
QByteArray userFile(const QByteArray &path, const QByteArray &content);
QByteArray bytesOf(const QByteArray &path);
