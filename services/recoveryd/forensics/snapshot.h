#pragma once

#include "recoveryd/ext/extinode.h"

#include <QJsonObject>
#include <QStringList>
#include <QVector>

namespace services {
namespace recoveryd {

/// Where a file's data lie, and its inode if the file system tells it.
struct FileLayout
{
    QString devicePath;     ///< As shown.
    QString imagePath;      ///< What is opened: an image or a block device.
    qint64 volumeStart = 0; ///< Bytes into it.
    qint64 blockSize = 0;
    qint64 fileSize = 0;
    quint64 inodeNumber = 0;
    QByteArray inode;       ///< What of the raw inode tells a change; empty if unknown.
    QVector<BlockRun> runs; ///< In blocks of the volume.

    qint64 blockCount() const;
};

/// The block layout of a file at one moment, with a hash of each block.
struct Snapshot
{
    QString snapshotId;
    QString filePath;
    FileLayout layout;
    QString fileSha256;
    QString snapshotTime;
    QStringList blockSha256; ///< In the order of the runs.

    /// An element of debug.listSnapshots.
    QJsonObject summary() const;
    /// debug.getSnapshot, without its verifications.
    QJsonObject detail() const;
    QJsonObject toStored() const;
    /// False if the parts do not fit together.
    [[nodiscard]] static bool fromStored(const QJsonObject &object, Snapshot *snapshot);
};

/// The fields of a raw ext inode that tell whether it still stands for the same file in the same
/// place. Times of access are none of them.
QByteArray inodeMark(const QByteArray &rawInode);

} // namespace recoveryd
} // namespace services
