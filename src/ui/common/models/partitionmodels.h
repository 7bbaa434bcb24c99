#pragma once

#include <QMetaType>
#include <QString>
#include <QVector>

namespace ui {
namespace common {
namespace models {

/// One partition as the recovery service reports it. Sizes are the service's display text and are
/// never parsed.
struct PartitionEntry
{
    QString title;
    QString pathAndFs; ///< Device path and file system, with blanks between: "/dev/sda1  XFS".
    QString used;
    QString total;
    QString mountPoint;
    int usage = 0; ///< Percent used, 0 to 100.
    bool selected = false;
    bool dashed = false; ///< Free space, drawn with a dashed outline.
};

/// One disk and its partitions, in the service's order.
struct DiskGroup
{
    QString diskTitle;
    QVector<PartitionEntry> partitions;
    QString diskSize = QString(); ///< As shown; empty if only the title can tell.
};

bool operator==(const PartitionEntry &a, const PartitionEntry &b);
bool operator==(const DiskGroup &a, const DiskGroup &b);

/// Sample disks: what the partition page shows until the service has reported the real ones, and
/// again whenever it is out of reach.
QVector<DiskGroup> buildPartitionGroups();

} // namespace models
} // namespace common
} // namespace ui

Q_DECLARE_METATYPE(ui::common::models::DiskGroup)
