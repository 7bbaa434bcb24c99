#pragma once

#include "recoveryd/ntfs/record.h"

namespace services::recoveryd::ntfs {

/// Neighbouring clusters of a stream.
struct Run
{
    static constexpr qint64 kHole = -1;

    qint64 vcn = 0; ///< Cluster of the stream.
    qint64 lcn = 0; ///< Cluster of the volume, or kHole.
    qint64 count = 0;

    qint64 vcnEnd() const { return vcn + count; }
};

/// Decodes the mapping pairs of a non-resident attribute. False if they are damaged; `runs` then
/// holds those before the damage.
[[nodiscard]] bool decodeRuns(const Record &record, const Attribute &attribute, QVector<Run> *runs);

} // namespace services::recoveryd::ntfs
