#include "recoveryd/xfs/formervolume.h"

namespace services::recoveryd::xfs {

namespace {

constexpr std::size_t kMaxFormers = 8;
constexpr std::size_t kMaxFiles = 2000000;
constexpr int kNumberAt = 152; ///< In an inode of version 3.
constexpr int kUuidAt = 160;

} // namespace

struct FormerVolumes::Former
{
    QByteArray uuid;
    Geometry geometry;
    NameBook names;
    std::vector<LostFile> files;
    std::vector<std::pair<quint64, Inode>> directories;
};

void FormerVolumes::addSuperblock(const QByteArray &sector)
{
    Geometry geometry;
    if (m_geometries.size() < kMaxFormers && parseSuperblock(sector, &geometry) &&
        geometry.uuid != m_volume.geometry().uuid)
        m_geometries.push_back(geometry);
}

/// A former file system is taken to have been laid out as the present one where no superblock of it
/// is left: the same disk is usually formatted the same way.
FormerVolumes::Former *FormerVolumes::formerOf(const QByteArray &uuid)
{
    for (const auto &former : m_formers)
        if (former->uuid == uuid)
            return former.get();
    if (m_formers.size() >= kMaxFormers)
        return nullptr;
    const auto former = std::make_shared<Former>();
    former->uuid = uuid;
    former->geometry = m_volume.geometry();
    for (const Geometry &geometry : m_geometries)
        if (geometry.uuid == uuid)
            former->geometry = geometry;
    former->geometry.uuid = uuid;
    former->names.setRoot(former->geometry.rootInode);
    m_formers.push_back(former);
    return former.get();
}

void FormerVolumes::addInode(qint64 offset, const View &bytes)
{
    const QByteArray uuid = bytes.bytes(kUuidAt, 16);
    const quint64 number = bytes.u64(kNumberAt);
    if (bytes.u8(4) < 3 || !isGenuine(bytes, uuid, number))
        return;
    Former *const former = formerOf(uuid);
    Inode inode;
    if (!former || former->geometry.offsetOfInode(number) != offset || !parseInode(bytes, &inode))
        return;
    if (former->files.size() + former->directories.size() >= kMaxFiles)
        return;
    if (inode.isDirectory()) {
        former->directories.emplace_back(number, inode);
    } else if (inode.isRegular() || inode.isFree()) {
        LostFile file;
        file.number = number;
        file.inode = inode;
        file.isSizeKnown = !inode.isFree();
        if (inode.isFree())
            file.deletedMs = inode.changedMs;
        former->files.push_back(file);
    }
}

void FormerVolumes::addEntries(qint64 offset, const QByteArray &block)
{
    const DirectoryHead head = directoryHead(View(block));
    Former *const former = head.isV5 ? formerOf(head.uuid) : nullptr;
    if (former)
        DirectoryReader(m_volume, former->geometry, nullptr, former->names)
            .readBlock(offset, block);
}

bool FormerVolumes::report(ScanObserver &observer)
{
    for (const auto &former : m_formers) {
        DirectoryReader reader(m_volume, former->geometry, nullptr, former->names);
        for (const auto &directory : former->directories)
            reader.readGone(directory.first, directory.second);
        former->names.prepare();
        FindingMaker maker(m_volume, former->geometry, nullptr, FindingMaker::Era::Former);
        for (LostFile &lost : former->files) {
            Finding finding;
            if (!maker.make(std::move(lost), former->names, false, &finding))
                continue;
            if (!observer.mayGoOn() || !observer.found(std::move(finding)))
                return false;
        }
    }
    return true;
}

} // namespace services::recoveryd::xfs
