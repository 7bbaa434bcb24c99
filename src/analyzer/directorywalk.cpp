#include "analyzer/directorywalk.h"

#include "analyzer/listingqueue.h"

#include <QFuture>
#include <QtConcurrentRun>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

constexpr const char *kSkippedTrees[] = {"/proc", "/sys",      "/dev",     "/run",
                                         "/snap", "/boot/efi", "/var/run", "/var/lock"};
constexpr const char *kSkippedNames[] = {".git",         ".svn",        ".hg",
                                         "node_modules", "__pycache__", ".thumbnails"};
/// Parts of the paths under which network shares are mounted for the desktop.
constexpr const char *kNetworkShares[] = {"smb-share:", "nfs-share:"};

/// Paths of entries, nearly all of which are asked for next to their siblings.
class SiblingPaths
{
public:
    explicit SiblingPaths(const DirectoryTree &tree)
        : m_tree(tree)
    {}

    QByteArray of(const DirNode *parent, const char *name)
    {
        if (parent != m_parent) {
            m_start = m_tree.path(parent, "");
            m_parent = parent;
        }
        return m_start + name;
    }
    QByteArray of(const DirNode &dir)
    {
        return dir.parent ? of(dir.parent, dir.name) : m_tree.path(&dir);
    }

private:
    const DirectoryTree &m_tree;
    const DirNode *m_parent = nullptr;
    QByteArray m_start; // of the parent, with a slash at the end
};

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

/// The nodes of the tree stand in the order in which they were found, which is that of the walk.
bool DirectoryWalk::run(DirectoryTree *tree) const
{
    ListingQueue queue(m_shouldStop);
    QFuture<void> helper = QtConcurrent::run([&queue] { queue.help(); });
    std::size_t queued = 0;
    SiblingPaths queuedPaths(*tree);
    SiblingPaths foundPaths(*tree);
    bool goOn = true;
    for (std::size_t i = 0; goOn && i < tree->size(); ++i) {
        for (; queued < tree->size() && queue.hasRoom(); ++queued)
            queue.add(queuedPaths.of(*tree->at(queued)), queued == 0);
        DirNode *dir = tree->at(i);
        goOn = queue.takeFirst([&](const DirectoryEntry &entry) {
            if (!entry.isDirectory)
                m_onFile(dir, entry);
            else if (isEntered(foundPaths.of(dir, entry.name)))
                tree->addChild(dir, entry.name);
        });
    }
    queue.finish();
    helper.waitForFinished();
    return goOn;
}

bool DirectoryWalk::isEntered(const QByteArray &path) const
{
    const auto isPart = [&path](const char *part) {
        return std::strstr(path.constData(), part) != nullptr;
    };
    return !shouldSkipDir(path) && !m_subMounts.contains(path) &&
           std::none_of(std::begin(kNetworkShares), std::end(kNetworkShares), isPart);
}
