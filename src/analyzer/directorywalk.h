#pragma once

#include "analyzer/directorytree.h"

#include <QByteArray>
#include <QSet>

#include <functional>
#include <sys/stat.h>

/// True for a directory of the system or of a tool, which no scan enters: by its path, which is
/// absolute and clean, or by its last name.
bool shouldSkipDir(const QByteArray &path);

/// Visits every regular file below a root, level by level, hidden ones too. Symbolic links are not
/// followed, apart from the root itself. What cannot be read or vanishes contributes nothing. One
/// directory is open at a time.
class DirectoryWalk
{
public:
    /// `name` is as on disk and only valid during the call.
    using FileVisitor =
        std::function<void(DirNode *dir, const char *name, const struct stat &info)>;

    /// Does not enter the directories of these paths. `shouldStop` is asked before every entry.
    DirectoryWalk(QSet<QByteArray> subMounts, std::function<bool()> shouldStop, FileVisitor onFile);

    /// Adds the directories to a tree that holds its root. False on a stop.
    bool run(DirectoryTree *tree) const;

private:
    bool readDirectory(DirectoryTree *tree, DirNode *dir) const;
    bool isEntered(const QByteArray &path) const;

    QSet<QByteArray> m_subMounts;
    std::function<bool()> m_shouldStop;
    FileVisitor m_onFile;
};
