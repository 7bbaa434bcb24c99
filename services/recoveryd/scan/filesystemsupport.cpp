#include "recoveryd/scan/filesystemsupport.h"

#include "recoveryd/btrfs/btrfssupport.h"
#include "recoveryd/exfat/exfatsupport.h"
#include "recoveryd/ext/undelete/extsupport.h"
#include "recoveryd/fat/fatsupport.h"
#include "recoveryd/ntfs/ntfssupport.h"
#include "recoveryd/xfs/xfssupport.h"

namespace services::recoveryd {

const QVector<FileSystemSupport> &supportedFileSystems()
{
    static const QVector<FileSystemSupport> families = {
        extSupport(), ntfsSupport(), exfatSupport(), fatSupport(), xfsSupport(), btrfsSupport()};
    return families;
}

const FileSystemSupport *supportOf(const FileSystem &fileSystem)
{
    for (const FileSystemSupport &family : supportedFileSystems())
        if (family.handles(fileSystem))
            return &family;
    return nullptr;
}

} // namespace services::recoveryd
