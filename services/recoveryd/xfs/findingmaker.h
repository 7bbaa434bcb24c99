#pragma once

#include "recoveryd/xfs/history.h"
#include "recoveryd/xfs/namebook.h"

#include <QSet>

namespace services::recoveryd::xfs {

/// Makes findings of the files that are lost, each once.
class FindingMaker
{
public:
    /// Which life of the volume a file belongs to; the later, the more its claim to a block counts.
    enum class Era : quint8 { Former, Current };

    FindingMaker(const XfsVolume &volume, const Geometry &geometry, const TreeHistory *trees,
                 Era era)
        : m_volume(volume)
        , m_geometry(geometry)
        , m_forks(volume, trees)
        , m_era(era)
    {}

    /// False if there is nothing to recover: no content, or no trace of where it was.
    [[nodiscard]] bool make(LostFile lost, NameBook &names, bool isNumberInUse, Finding *finding);
    /// A file that exists.
    [[nodiscard]] bool makeExisting(quint64 number, const Inode &inode, NameBook &names,
                                    Finding *finding);

private:
    void completeFork(LostFile *lost) const;
    bool isDirectory(quint64 number, const BlockMap &map) const;
    quint64 recencyOf(const Inode &inode) const;
    bool isNew(const LostFile &lost, const FileContent &content);

    const XfsVolume &m_volume;
    const Geometry &m_geometry;
    ForkReader m_forks;
    Era m_era;
    QSet<quint64> m_seen; ///< Hashes of what was made.
};

} // namespace services::recoveryd::xfs
