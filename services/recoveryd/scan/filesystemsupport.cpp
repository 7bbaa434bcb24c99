#include "recoveryd/scan/filesystemsupport.h"

#include "recoveryd/ext/undelete/extsupport.h"
#include "recoveryd/ntfs/ntfssupport.h"

namespace services::recoveryd {

const QVector<FileSystemSupport> &supportedFileSystems()
{
    static const QVector<FileSystemSupport> families = {extSupport(), ntfsSupport()};
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
