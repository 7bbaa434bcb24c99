#pragma once

#include "recoveryd/btrfs/filehistory.h"
#include "recoveryd/btrfs/remains.h"
#include "recoveryd/scan/finding.h"

namespace services::recoveryd::btrfs {

/// Compares the contents of files with the file system's own sums. Reads the data, so no more than
/// a budget of bytes in all; of files beyond that a few sectors of each extent. One thread.
class ContentCheck
{
public:
    ContentCheck(const MediaReader &media, const Remains &remains, qint64 budget)
        : m_media(media)
        , m_remains(remains)
        , m_budget(budget)
    {}

    /// Failed as soon as one sector is not what was written; passed only if all are.
    Finding::Check check(const FileVersion &version);

private:
    struct Outcome
    {
        bool isWrong = false;
        bool isSure = true;
    };

    void checkExtent(quint64 address, qint64 length, quint64 generation, bool isAll,
                     Outcome *outcome);
    void checkStretch(quint64 address, int sectors, quint64 generation, Outcome *outcome);

    const MediaReader &m_media;
    const Remains &m_remains;
    qint64 m_budget;
};

} // namespace services::recoveryd::btrfs
