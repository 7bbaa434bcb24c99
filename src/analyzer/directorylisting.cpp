#include "analyzer/directorylisting.h"

#include "core/directorystream.h"

#include <sys/stat.h>

namespace {

bool isDots(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

/// Directories and what is neither cost no call, unless the file system leaves the type out.
bool describe(int dirFd, const dirent &found, DirectoryEntry *entry)
{
    *entry = {found.d_name, found.d_type == DT_DIR, 0, 0, {}};
    if (entry->isDirectory)
        return !isDots(found.d_name);
    if (found.d_type != DT_REG && found.d_type != DT_UNKNOWN)
        return false;
    struct stat info;
    if (isDots(found.d_name) || fstatat(dirFd, found.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    entry->isDirectory = S_ISDIR(info.st_mode);
    if (!S_ISREG(info.st_mode))
        return entry->isDirectory;
    entry->size = info.st_size;
    entry->modifiedMs = qint64(info.st_mtim.tv_sec) * 1000 + info.st_mtim.tv_nsec / 1000000;
    entry->identity = core::identityOf(info);
    return true;
}

} // namespace

bool listDirectory(const QByteArray &path, bool isRoot, const std::function<bool()> &shouldStop,
                   const std::function<void(const DirectoryEntry &)> &onEntry)
{
    const core::DirectoryStream listing = core::openDirectory(path.constData(), isRoot);
    if (!listing)
        return !shouldStop();
    const int fd = dirfd(listing.get());
    while (const dirent *found = readdir(listing.get())) {
        if (shouldStop())
            return false;
        DirectoryEntry entry;
        if (describe(fd, *found, &entry))
            onEntry(entry);
    }
    return true;
}
