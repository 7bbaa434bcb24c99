#pragma once

#include "analyzer/directorylisting.h"
#include "analyzer/directorytree.h"

#include <QByteArray>
#include <QSet>

#include <functional>

/// True for a directory of the system or of a tool, which no scan enters: by its path, which is
/// absolute and clean, or by its last name.
bool shouldSkipDir(const QByteArray &path);

/// Visits every regular file below a root, level by level, hidden ones too. Symbolic links are not
/// followed, apart from the root itself. What cannot be read or vanishes contributes nothing. A
/// thread of the global pool lists directories ahead; the order is the same without it.
class DirectoryWalk
{
public:
    using FileVisitor = std::function<void(DirNode *dir, const DirectoryEntry &file)>;

    /// Does not enter the directories of these paths. `shouldStop` is asked before every entry, on
    /// both threads; `onFile` is called on the one that runs the walk.
    DirectoryWalk(QSet<QByteArray> subMounts, std::function<bool()> shouldStop, FileVisitor onFile);

    /// Adds the directories to a tree that holds its root. False on a stop.
    bool run(DirectoryTree *tree) const;

private:
    bool isEntered(const QByteArray &path) const;

    QSet<QByteArray> m_subMounts;
    std::function<bool()> m_shouldStop;
    FileVisitor m_onFile;
};
