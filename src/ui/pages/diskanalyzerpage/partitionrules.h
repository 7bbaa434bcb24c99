#pragma once

#include <QString>
#include <QVector>

#include <functional>

namespace diskanalyzer {

/// A mounted volume. Sizes in bytes.
struct PartitionInfo
{
    QString mountPath;
    QString device;
    QString fsType;
    QString label; ///< What it is called on its card; partitionCards() fills it in.
    qint64 totalBytes = 0;
    qint64 usedBytes = 0;
    QString fsRoot = QStringLiteral("/"); ///< Directory of the file system that is mounted.
};

/// Reads the mounted volumes; may block, runs on a pool thread.
using PartitionProvider = std::function<QVector<PartitionInfo>()>;

/// A volume of a disk in this machine that a person keeps files on, judged by type, device and
/// mount path alone.
bool isLocalVolume(const PartitionInfo &volume);

/// "系统盘", "数据盘", the name of a removable volume, or the mount path.
QString partitionLabel(const QString &mountPath);
/// Glyph of the icon font.
QString iconGlyphForMount(const QString &mountPath);

/// The volumes that get a card, labelled and in the order of the cards. Of two mounts of one device
/// where one shows nothing that the other does not, only the wider one stays, or else the first:
/// bound directories make no card, but the subvolumes of one device do.
QVector<PartitionInfo> partitionCards(const QVector<PartitionInfo> &volumes);

/// Used share in percent, 0 to 100.
int usedPercent(const PartitionInfo &partition);
/// "系统盘  /"; the device in place of a path that is the label already.
QString partitionTitle(const PartitionInfo &partition);

/// PartitionProvider over the mounts of this process. Asks no volume for its size that
/// isLocalVolume() leaves out, since one on a dead network mount would not answer.
QVector<PartitionInfo> readPartitions();

} // namespace diskanalyzer
