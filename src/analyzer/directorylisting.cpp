#include "analyzer/directorylisting.h"

#include "core/descriptor.h"
#include "core/directorystream.h"

#include <cerrno>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace {

/// Bytes of entries taken from the system at a time.
constexpr int kNamesSize = 32768;

bool isDots(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

/// Directories and what is neither cost no call, unless the file system leaves the type out.
bool describe(int dirFd, const dirent64 &found, DirectoryEntry *entry)
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

/// Bytes of entries; 0 behind the last one, below 0 on an error.
long readEntries(int dirFd, char *names)
{
    long got = 0;
    do
        got = ::syscall(SYS_getdents64, dirFd, names, kNamesSize);
    while (got < 0 && errno == EINTR);
    return got;
}

} // namespace

/// Not by readdir(3), whose stream costs a small directory as many calls as its content.
bool listDirectory(const QByteArray &path, bool isRoot, const std::function<bool()> &shouldStop,
                   const std::function<void(const DirectoryEntry &)> &onEntry)
{
    const core::Descriptor directory(core::openDirectoryDescriptor(path.constData(), isRoot));
    if (!directory.isOpen())
        return !shouldStop();
    alignas(dirent64) char names[kNamesSize];
    for (long size; (size = readEntries(directory.get(), names)) > 0;) {
        for (long at = 0; at < size;) {
            if (shouldStop())
                return false;
            const dirent64 &found = *reinterpret_cast<const dirent64 *>(names + at);
            DirectoryEntry entry;
            if (describe(directory.get(), found, &entry))
                onEntry(entry);
            at += found.d_reclen;
        }
    }
    return true;
}
