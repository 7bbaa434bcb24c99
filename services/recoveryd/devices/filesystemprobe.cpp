#include "recoveryd/devices/filesystemprobe.h"

#include "recoveryd/devices/blkidprobe.h"
#include "recoveryd/devices/bytes.h"
#include "recoveryd/devices/fatprobe.h"
#include "recoveryd/ext/extvolume.h"

namespace services {
namespace recoveryd {

namespace {

QString labelAt(const QByteArray &bytes, int at, int length)
{
    const QByteArray raw = bytes.mid(at, length);
    return QString::fromUtf8(raw.constData(), int(qstrnlen(raw.constData(), uint(raw.size()))))
        .trimmed();
}

/// An id of the file system as text; empty if it is all zeros.
QString idAt(const QByteArray &bytes, int at, int length)
{
    const QByteArray id = bytes.mid(at, length);
    return id.count('\0') == id.size() ? QString() : QString::fromLatin1(id.toHex());
}

FileSystem probeExt(const Volume &volume)
{
    FileSystem found;
    ExtVolume ext;
    if (!ext.open(volume, nullptr))
        return found;
    const ExtSuperblock &super = ext.superblock();
    found.type = super.typeName();
    found.label = super.label;
    found.uuid = idAt(volume.read(1024 + 0x68, 16), 0, 16);
    found.blockSize = super.blockSize;
    found.size = super.blockCount * super.blockSize;
    found.used = qMax(qint64(0), super.blockCount - super.freeBlocks) * super.blockSize;
    return found;
}

FileSystem probeXfs(const Volume &volume)
{
    FileSystem found;
    const QByteArray bytes = volume.read(0, 512);
    const Fields super(bytes);
    const quint32 blockSize = super.be32(4);
    if (!super.isAt(0, "XFSB", 4) || !isPowerOfTwo(blockSize) || blockSize < 512 ||
        blockSize > 65536)
        return found;
    const quint64 blocks = super.be64(8);
    const quint64 free = super.be64(144);
    if (blocks == 0 || blocks > (quint64(1) << 44) || free > blocks)
        return found;
    found.type = QStringLiteral("xfs");
    found.label = labelAt(bytes, 108, 12);
    found.uuid = idAt(bytes, 32, 16);
    found.blockSize = blockSize;
    found.size = qint64(blocks) * blockSize;
    found.used = qint64(blocks - free) * blockSize;
    return found;
}

FileSystem probeBtrfs(const Volume &volume)
{
    constexpr qint64 kSuperblockAt = 65536;
    FileSystem found;
    const QByteArray bytes = volume.read(kSuperblockAt, 4096);
    const Fields super(bytes);
    if (!super.isAt(0x40, "_BHRfS_M", 8))
        return found;
    const quint64 total = super.le64(0x70);
    const quint64 used = super.le64(0x78);
    if (total == 0 || total > (quint64(1) << 60) || used > total)
        return found;
    found.type = QStringLiteral("btrfs");
    found.label = labelAt(bytes, 0x12B, 256);
    found.uuid = idAt(bytes, 0x20, 16);
    found.blockSize = 4096;
    found.size = qint64(total);
    found.used = qint64(used);
    return found;
}

FileSystem probeNtfs(const Volume &volume)
{
    FileSystem found;
    const QByteArray bytes = volume.read(0, 512);
    const Fields boot(bytes);
    const quint32 sectorSize = boot.le16(11);
    const quint8 sectorsPerCluster = boot.u8(13);
    if (!boot.isAt(3, "NTFS    ", 8) || !isPowerOfTwo(sectorSize) || sectorSize < 256 ||
        sectorSize > 4096 || !isPowerOfTwo(sectorsPerCluster))
        return found;
    const quint64 sectors = boot.le64(40);
    if (sectors == 0 || sectors > (quint64(1) << 50))
        return found;
    found.type = QStringLiteral("ntfs");
    found.uuid = idAt(bytes, 0x48, 8);
    found.blockSize = qint64(sectorSize) * sectorsPerCluster;
    found.size = qint64(sectors * sectorSize);
    return found;
}

FileSystem probeSwap(const Volume &volume)
{
    FileSystem found;
    const QByteArray page = volume.read(0, 4096);
    const Fields header(page);
    if (!header.isAt(4086, "SWAPSPACE2", 10))
        return found;
    found.type = QStringLiteral("swap");
    found.label = labelAt(page, 1024 + 28, 16);
    found.uuid = idAt(page, 1024 + 12, 16);
    found.blockSize = 4096;
    found.size = (qint64(header.le32(1024 + 4)) + 1) * 4096;
    found.used = 0;
    return found;
}

} // namespace

FileSystem probeFileSystem(const Volume &volume)
{
    for (const auto probe :
         {probeExt, probeXfs, probeBtrfs, probeNtfs, probeExfat, probeFat, probeSwap}) {
        const FileSystem found = probe(volume);
        if (found.isKnown())
            return found;
    }
    return probeWithBlkid(volume);
}

} // namespace recoveryd
} // namespace services
