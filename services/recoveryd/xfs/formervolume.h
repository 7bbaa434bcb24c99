#pragma once

#include "recoveryd/scan/scanner.h"
#include "recoveryd/xfs/directoryreader.h"
#include "recoveryd/xfs/findingmaker.h"

#include <memory>

namespace services::recoveryd::xfs {

/// What is left of file systems that the volume had before it was formatted. Their inodes and
/// directories carry their own mark; before version 5 they cannot be told from present ones.
class FormerVolumes
{
public:
    explicit FormerVolumes(const XfsVolume &volume)
        : m_volume(volume)
    {}

    /// A superblock that another format has left.
    void addSuperblock(const QByteArray &sector);
    /// An inode of another file system than the present one.
    void addInode(qint64 offset, const View &bytes);
    void addEntries(qint64 offset, const QByteArray &block);
    /// False if the observer ended it.
    [[nodiscard]] bool report(ScanObserver &observer);

private:
    struct Former;

    Former *formerOf(const QByteArray &uuid);

    const XfsVolume &m_volume;
    std::vector<Geometry> m_geometries;
    std::vector<std::shared_ptr<Former>> m_formers;
};

} // namespace services::recoveryd::xfs
