#pragma once

#include "recoveryd/scan/finding.h"
#include "recoveryd/xfs/geometry.h"
#include "recoveryd/xfs/view.h"

namespace services::recoveryd::xfs {

/// How the data fork of an inode is kept.
enum class ForkFormat : quint8 { Device, Local, Extents, Tree, Other };

/// A state of an inode, from the disk or from the log.
struct Inode
{
    quint64 size = 0;
    quint64 lsn = 0;     ///< Of the last change on disk; 0 before version 5.
    quint64 extents = 0; ///< Number of extents of the data fork.
    quint64 blocks = 0;  ///< Of both forks and their trees.
    qint64 modifiedMs = Finding::kUnknownTime;
    qint64 changedMs = Finding::kUnknownTime;
    QByteArray fork; ///< Data fork as it is on disk; of a freed inode what is left in its place.
    quint32 generation = 0;
    quint32 links = 0;
    int forkSize = 0; ///< Room of the data fork in bytes; 0: all that there is.
    quint16 mode = 0; ///< 0: freed.
    ForkFormat format = ForkFormat::Other;
    bool isSpecial = false; ///< Data on the realtime device, or a file of the file system's own.
    bool hasFork = false;   ///< The log may leave the fork out.

    bool isRegular() const { return (mode & 0170000) == 0100000; }
    bool isDirectory() const { return (mode & 0170000) == 0040000; }
    bool isFree() const { return mode == 0; }
    quint8 fileType() const; ///< As directory entries tell it; 0 for kinds that are not looked for.
};

constexpr int kCoreSize = 176; ///< Version 3.
constexpr int kOldCoreSize = 100;
constexpr quint8 kTypeFile = 1; ///< File types of directory entries.
constexpr quint8 kTypeFolder = 2;

/// Whether an inode's first bytes stand there.
bool isInode(const View &view);
/// The fixed fields, without forks. `view` may end early: what it lacks reads as 0.
void parseCore(const View &view, Inode *inode);
/// An inode as it is on disk, of `view.size()` bytes. False if it is none.
[[nodiscard]] bool parseInode(const View &view, Inode *inode);
/// The same, and of version 3: belongs to the volume `uuid`, says that it is inode `number`, and
/// its checksum is right.
[[nodiscard]] bool isGenuine(const View &view, const QByteArray &uuid, quint64 number);

} // namespace services::recoveryd::xfs
