#include "recoveryd/xfs/xfssupport.h"

#include "recoveryd/xfs/freespace.h"
#include "recoveryd/xfs/xfsscanner.h"

#include <cstring>

namespace services::recoveryd {

namespace {

bool handles(const FileSystem &fileSystem)
{
    return fileSystem.type == QLatin1String("xfs");
}

std::unique_ptr<Scanner> makeScanner(const ScanContext &context)
{
    return std::make_unique<xfs::XfsScanner>(context);
}

bool freeRanges(const MediaReader &media, Ranges *ranges, QString *error)
{
    xfs::XfsVolume volume(media);
    if (!volume.open()) {
        if (error)
            *error = QStringLiteral("没有找到完好的 XFS 超级块");
        return false;
    }
    return xfs::freeOfVolume(volume, ranges, error);
}

bool hasRoot(const MediaReader &media, qint64 start, const xfs::Geometry &geometry)
{
    const qint64 offset = geometry.offsetOfInode(geometry.rootInode);
    return offset > 0 && xfs::isInode(xfs::View(media.read(start + offset, geometry.inodeSize)));
}

/// All groups begin with a copy of the superblock; the headers behind it tell which group it is.
bool recognise(const MediaReader &media, qint64 offset, const QByteArray &bytes, FoundVolume *found)
{
    xfs::Geometry geometry;
    if (bytes.size() < xfs::kSuperblockSize || std::memcmp(bytes.constData(), "XFSB", 4) != 0 ||
        !xfs::parseSuperblock(bytes, &geometry))
        return false;
    qint64 group = xfs::groupAt(media, offset, geometry);
    if (group < 0 && hasRoot(media, offset, geometry))
        group = 0;
    if (group < 0)
        return false;
    found->type = QStringLiteral("xfs");
    found->label = geometry.label;
    found->start = offset - geometry.agStart(quint32(group));
    found->size = geometry.size();
    found->isFromBackup = group != 0;
    return true;
}

} // namespace

FileSystemSupport xfsSupport()
{
    return {handles, makeScanner, freeRanges, recognise};
}

} // namespace services::recoveryd
