#pragma once

#include "recoveryd/ntfs/filefacts.h"
#include "recoveryd/scan/finding.h"

namespace services::recoveryd::ntfs {

/// Which life of the volume a file belongs to; the later, the more its claim to a block counts.
enum class Era : quint8 {
    Earlier, ///< Before the volume was formatted, or from where this is not known.
    Current, ///< Deleted since.
    Existing,
};

/// How bytes of the volume are counted for one file.
struct VolumeScale
{
    qint64 clusterSize = 4096;
    qint64 volumeSize = 0;
};

/// The findings of one file, one for each stream worth recovering: its data and its alternate
/// streams as "name:stream". `place` has the name, folder and times of the file.
QVector<Finding> makeFindings(const FileFacts &facts, const Finding &place, Era era,
                              const VolumeScale &scale);

} // namespace services::recoveryd::ntfs
