#pragma once

#include "analyzer/bytearena.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <deque>
#include <functional>

/// One directory met in a walk. Sizes are bytes.
struct DirNode
{
    DirNode *parent = nullptr;
    const char *name = ""; ///< As on disk; empty for the root.
    qint64 fileSize = 0;   ///< Of the files directly in the directory.
    qint64 totalSize = 0;  ///< With all subdirectories; known after DirectoryTree::sumUp().
    std::size_t firstChild = 0;
    std::size_t childCount = 0;
    int pathLength = 0;      ///< Bytes.
    bool holdsFiles = false; ///< Itself, or after sumUp() any directory below.
    bool isNamable = true;   ///< False if no QString leads to this directory.
};

/// The directories of one walk. Siblings lie one behind the other and parents before their
/// children, since a walk adds all children of a directory before it goes on to the next one.
class DirectoryTree
{
public:
    /// `rootPath` is clean and absolute.
    explicit DirectoryTree(const QString &rootPath);

    std::size_t size() const { return m_nodes.size(); }
    DirNode *at(std::size_t index) { return &m_nodes[index]; }

    /// `parent` must be the one that the last child was added to, or a later one.
    void addChild(DirNode *parent, const char *name);
    /// Counts a file of `size` bytes.
    static void accumulateToDir(DirNode *dir, qint64 size);

    /// Path as bytes, without a slash at the end unless it is "/".
    QByteArray path(const DirNode *dir) const;
    /// Path of an entry of `dir` as bytes.
    QByteArray path(const DirNode *dir, const char *name) const;
    /// False if no QString leads to that entry, or its path is too long to be opened.
    static bool isListable(const DirNode *dir, const char *name);
    /// Path of an entry that is listable.
    QString listedPath(const DirNode *dir, const char *name) const;

    /// Works out all totals. Call once, after the walk.
    void sumUp();
    /// The map of "name", "totalSize", "fileSize" and "children", largest child first, equal ones
    /// by name. The root's name is its path. A directory without a file anywhere below is left out;
    /// a name that is no valid text is shown as near as possible. Empty on a stop.
    QVariantMap toVariant(const std::function<bool()> &shouldStop) const;

private:
    QVariantMap dirNodeToVariant(const DirNode &node, const QString &name,
                                 const QVariant &children) const;

    QByteArray m_rootPath;
    std::deque<DirNode> m_nodes;
    ByteArena m_names;
};
