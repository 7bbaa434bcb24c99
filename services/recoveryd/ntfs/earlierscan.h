#pragma once

#include "recoveryd/ntfs/findingmaker.h"
#include "recoveryd/ntfs/namebook.h"
#include "recoveryd/ntfs/ntfsvolume.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd::ntfs {

/// Files whose FILE records lie outside the known file table: of a volume that was formatted again,
/// or whose table cannot be found. Records are gathered by place first, and read again in order
/// once all directories among them are known. One thread.
class EarlierScan
{
public:
    /// What a record still marked as in use is taken for.
    enum class InUse : quint8 { Lost, Existing };

    EarlierScan(const MediaReader &media, NameBook &names, InUse inUse, qint64 defaultClusterSize);

    void add(qint64 offset, const Record &record);
    [[nodiscard]] bool report(ScanObserver &observer);

private:
    FileFacts gather(const Record &base, qint64 clusterSize) const;
    qint64 usualClusterSize() const;
    [[nodiscard]] bool reportOne(const Record &record, ScanObserver &observer);

    const MediaReader &m_media;
    NameBook &m_names;
    InUse m_inUse;
    qint64 m_defaultClusterSize;
    QVector<qint64> m_offsets;
    QHash<quint64, qint64> m_continuations; ///< Places by number.
    QHash<quint32, QVector<quint64>> m_continuationsOf;
    QHash<qint64, int> m_clusterSizes; ///< How many records speak of each.
};

} // namespace services::recoveryd::ntfs
