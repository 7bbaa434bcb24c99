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
/// link after it was listed must not lead out of the tree.
inline DirectoryStream openDirectory(const char *path, bool isRoot)
{
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | (isRoot ? 0 : O_NOFOLLOW);
    const int fd = ::open(path, flags);
    if (fd < 0)
        return nullptr;
    DirectoryStream stream(::fdopendir(fd));
    if (!stream)
        ::close(fd);
    return stream;
}

} // namespace core
