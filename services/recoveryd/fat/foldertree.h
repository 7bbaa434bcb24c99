#pragma once

#include "recoveryd/scan/finding.h"

#include <vector>

namespace services::recoveryd::fat {

/// Where a directory is, as far as it is known.
struct FolderPath
{
    QByteArray folder; ///< Without a slash at either end.
    Finding::Folder knowledge = Finding::Folder::Unknown;
};

/// The directories of a volume, named by numbers. One thread.
class FolderTree
{
public:
    static constexpr int kRoot = 0;
    static constexpr int kNone = -1;

    FolderTree() { m_nodes.push_back({kNone, QByteArray()}); }

    /// A directory of which nothing is known yet. kNone once there are too many.
    int add();
    /// `name` empty: it is a part of `parent`.
    void place(int folder, int parent, const QByteArray &name);
    bool isPlaced(int folder) const { return folder == kRoot || m_nodes[folder].parent != kNone; }
    /// Knows `parent` without its own name: the path then begins below it.
    FolderPath pathOf(int folder) const;
    int count() const { return int(m_nodes.size()); }

private:
    struct Node
    {
        int parent = kNone;
        QByteArray name;
    };

    std::vector<Node> m_nodes;
    mutable int m_lastFolder = kNone;
    mutable FolderPath m_lastPath;
};

} // namespace services::recoveryd::fat
