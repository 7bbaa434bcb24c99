#include "recoveryd/ext/undelete/extsupport.h"

#include "recoveryd/devices/bytes.h"
#include "recoveryd/ext/undelete/extscanner.h"
#include "recoveryd/ext/undelete/freespace.h"

namespace services::recoveryd {

namespace {

constexpr int kMagicAt = 56;

bool handles(const FileSystem &fileSystem)
{
    return fileSystem.isExt();
}

std::unique_ptr<Scanner> makeScanner(const ScanContext &context)
{
    return std::make_unique<ext::ExtScanner>(context);
}

bool freeRanges(const MediaReader &media, Ranges *ranges, QString *error)
{
    ext::Layout layout(media);
    if (!layout.open(error))
        return false;
    const std::unique_ptr<ext::Journal> journal = ext::openJournal(layout);
    // After a crash the newest bitmaps may be in the journal only.
    if (journal && journal->isDirty())
        ext::readPending(journal.get(), &layout);
    return ext::readFreeSpace(ext::Blocks(layout, journal.get()), ranges, error);
}

/// The journal and files that are disk images hold copies of superblocks, too: only one whose
/// volume has a root directory, or the tables that it speaks of, counts.
bool hasVolume(const MediaReader &media, const ext::SuperblockPlace &place)
{
    const Volume &whole = media.volume();
    const qint64 size = place.super.blockCount * place.super.blockSize;
    if (whole.start() + place.start < 0 || place.start >= media.size())
        return false;
    const MediaReader part(
        Volume(whole.image(), whole.start() + place.start, qMin(size, media.size() - place.start)));
    ext::Layout layout(part);
    if (!layout.openAs(place.super, nullptr))
        return false;
    const qint64 block = layout.blockOfInode(ext::kRootDirectory);
    ext::Inode root;
    return block > 0 &&
           ext::parseInode(layout, layout.readBlock(block), ext::kRootDirectory - 1, &root) &&
           root.isDirectory();
}

bool recognise(const MediaReader &media, qint64 offset, const QByteArray &bytes, FoundVolume *found)
{
    ext::SuperblockPlace place;
    if (bytes.size() < kExtSuperblockSize || Fields(bytes).le16(kMagicAt) != kExtMagic ||
        !ext::parseSuperblockAt(bytes, offset, &place))
        return false;
    if (!hasVolume(media, place)) {
        if (!ext::mayBeJournalled(media, place))
            return false;
        place.isPrimary = false;
        place.start = 0;
        if (!hasVolume(media, place))
            return false;
    }
    found->type = place.super.typeName();
    found->label = place.super.label;
    found->start = place.start;
    found->size = place.super.blockCount * place.super.blockSize;
    found->isFromBackup = !place.isPrimary;
    return true;
}

} // namespace

FileSystemSupport extSupport()
{
    return {handles, makeScanner, freeRanges, recognise};
}

} // namespace services::recoveryd
