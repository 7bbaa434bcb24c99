#include "analyzer/directorywalk.h"

#include <algorithm>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <memory>
#include <unistd.h>
#include <utility>

namespace {

constexpr const char *kSkippedTrees[] = {"/proc", "/sys",      "/dev",     "/run",
                                         "/snap", "/boot/efi", "/var/run", "/var/lock"};
constexpr const char *kSkippedNames[] = {".git",         ".svn",        ".hg",
                                         "node_modules", "__pycache__", ".thumbnails"};
/// Parts of the paths under which network shares are mounted for the desktop.
constexpr const char *kNetworkShares[] = {"smb-share:", "nfs-share:"};

struct CloseDirectory
{
    void operator()(DIR *dir) const { closedir(dir); }
};

/// A directory that was replaced by a link after it was listed must not lead out of the tree.
DIR *openDirectory(const QByteArray &path, bool isRoot)
{
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | (isRoot ? 0 : O_NOFOLLOW);
    const int fd = open(path.constData(), flags);
    if (fd < 0)
        return nullptr;
    DIR *dir = fdopendir(fd);
    if (!dir)
        close(fd);
    return dir;
}

bool isDots(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace

bool shouldSkipDir(const QByteArray &path)
{
    const char *bytes = path.constData();
    const auto holdsPath = [bytes](const char *tree) {
        const std::size_t length = std::strlen(tree);
        return std::strncmp(bytes, tree, length) == 0 &&
               (bytes[length] == '\0' || bytes[length] == '/');
    };
    const char *lastName = bytes + path.lastIndexOf('/') + 1;
    const auto isLastName = [lastName](const char *name) {
        return std::strcmp(lastName, name) == 0;
    };
    return std::any_of(std::begin(kSkippedTrees), std::end(kSkippedTrees), holdsPath) ||
           std::any_of(std::begin(kSkippedNames), std::end(kSkippedNames), isLastName);
}

DirectoryWalk::DirectoryWalk(QSet<QByteArray> subMounts, std::function<bool()> shouldStop,
                             FileVisitor onFile)
    : m_subMounts(std::move(subMounts))
    , m_shouldStop(std::move(shouldStop))
    , m_onFile(std::move(onFile))
{}

/// The tree is the queue: its nodes stand in the order in which they were found.
bool DirectoryWalk::run(DirectoryTree *tree) const
{
    for (std::size_t i = 0; i < tree->size(); ++i)
        if (!readDirectory(tree, tree->at(i)))
            return false;
    return true;
}

bool DirectoryWalk::readDirectory(DirectoryTree *tree, DirNode *dir) const
{
    if (m_shouldStop())
        return false;
    const std::unique_ptr<DIR, CloseDirectory> listing(
        openDirectory(tree->path(dir), dir->parent == nullptr));
    if (!listing)
        return true;
    const int fd = dirfd(listing.get());
    while (const dirent *entry = readdir(listing.get())) {
        if (m_shouldStop())
            return false;
        const char *name = entry->d_name;
        unsigned char type = entry->d_type;
        if (isDots(name) || (type != DT_REG && type != DT_DIR && type != DT_UNKNOWN))
            continue;
        struct stat info;
        if (type != DT_DIR) {
            if (fstatat(fd, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            type = static_cast<unsigned char>(IFTODT(info.st_mode));
        }
        if (type == DT_REG)
            m_onFile(dir, name, info);
        else if (type == DT_DIR && isEntered(tree->path(dir, name)))
            tree->addChild(dir, name);
    }
    return true;
}

bool DirectoryWalk::isEntered(const QByteArray &path) const
{
    const auto isPart = [&path](const char *part) {
        return std::strstr(path.constData(), part) != nullptr;
    };
    return !shouldSkipDir(path) && !m_subMounts.contains(path) &&
           std::none_of(std::begin(kNetworkShares), std::end(kNetworkShares), isPart);
}
