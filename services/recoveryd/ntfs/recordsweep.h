#pragma once

#include "recoveryd/devices/mediareader.h"
#include "recoveryd/ntfs/record.h"
#include "recoveryd/scan/scanner.h"

#include <functional>

namespace services::recoveryd::ntfs {

/// Looks for FILE records and INDX blocks at every sector of some ranges.
class RecordSweep
{
public:
    struct Handlers
    {
        std::function<bool(qint64 offset, Record &record)> record; ///< False: end.
        std::function<void(const QByteArray &block)> indexBlock;   ///< Fixups undone.
    };

    RecordSweep(const MediaReader &media, const Handlers &handlers)
        : m_media(media)
        , m_handlers(handlers)
    {}

    /// Bytes that are read beyond a range, for a structure that begins in it.
    void setOverlap(qint64 bytes) { m_overlap = bytes; }
    /// False if the observer or a handler ended it.
    [[nodiscard]] bool run(const Ranges &ranges, ScanObserver &observer, qint64 doneBefore);
    /// From `start` on, as long as records keep coming; for where an old file table may go on.
    /// Gives where it ended.
    [[nodiscard]] bool follow(qint64 start, qint64 end, qint64 *reached, ScanObserver &observer);

    int recordsFound() const { return m_recordsFound; }

private:
    [[nodiscard]] bool sweepPiece(qint64 start, qint64 end);
    int visit(const char *at, int left, qint64 offset);

    const MediaReader &m_media;
    Handlers m_handlers;
    qint64 m_overlap = 64 * 1024;
    QByteArray m_buffer;
    int m_recordsFound = 0;
    bool m_isEnded = false;
};

} // namespace services::recoveryd::ntfs
