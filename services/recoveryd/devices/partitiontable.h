#pragma once

#include "recoveryd/devices/image.h"

#include <QVector>

namespace services {
namespace recoveryd {

/// One partition as the table tells it; start and size in bytes from the start of the disk.
struct Partition
{
    int number = 0; ///< As in device names: logical partitions begin at 5. 0 for a gap.
    qint64 start = 0;
    qint64 size = 0;
    QString name; ///< The name in a GPT, or what the type stands for; may be empty.
};

/// The partitions of an MBR (with logical partitions) or a GPT, in the order of their numbers. A
/// disk without a table gives none and no error. A GPT whose first copy fails its checksums is read
/// from its second copy. Partitions that begin outside the disk are an error.
[[nodiscard]] bool readPartitionTable(const Volume &disk, QVector<Partition> *partitions,
                                      QString *error);

/// What lies between the partitions, where at least `smallest` bytes; number is 0.
QVector<Partition> gapsBetween(QVector<Partition> partitions, qint64 diskSize, qint64 smallest);

} // namespace recoveryd
} // namespace services
