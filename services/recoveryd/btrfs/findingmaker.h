#pragma once

#include "recoveryd/btrfs/contentcheck.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd::btrfs {

/// Turns the versions of files into findings. One thread.
class FindingMaker
{
public:
    FindingMaker(const MediaReader &media, const Remains &remains, qint64 checkBudget)
        : m_media(media)
        , m_remains(remains)
        , m_check(media, remains, checkBudget)
    {}

    /// Reports all remains. `listsExisting`: those that still exist, too. False if the observer
    /// ended it.
    [[nodiscard]] bool report(bool listsExisting, ScanObserver &observer);

private:
    [[nodiscard]] bool reportVersion(const FileVersion &version, ScanObserver &observer);
    bool addExtents(const FileVersion &version, FileContent *content) const;
    bool addInline(const ExtentItem &extent, FileContent *content) const;
    bool addPacked(const ExtentItem &extent, qint64 length, FileContent *content) const;
    bool addPlain(const ExtentItem &extent, qint64 length, FileContent *content) const;

    const MediaReader &m_media;
    const Remains &m_remains;
    ContentCheck m_check;
};

} // namespace services::recoveryd::btrfs
