#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace core {

struct CloseDirectory
{
    void operator()(DIR *dir) const { ::closedir(dir); }
};

/// A directory open for readdir(3), closed at the end; null if it could not be opened.
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

/// Where a walk begins may be a link, what lies below may not: a directory that was replaced by a
/// link after it was listed must not lead out of the tree. The caller closes it; -1 on an error.
inline int openDirectoryDescriptor(const char *path, bool isRoot)
{
    return ::open(path,
                  O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | (isRoot ? 0 : O_NOFOLLOW));
}

inline DirectoryStream openDirectory(const char *path, bool isRoot)
{
    const int fd = openDirectoryDescriptor(path, isRoot);
    if (fd < 0)
        return nullptr;
    DirectoryStream stream(::fdopendir(fd));
    if (!stream)
        ::close(fd);
    return stream;
}

} // namespace core
