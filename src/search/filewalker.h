#pragma once

#include <QString>
#include <QVector>

#include <functional>

/// Walks a directory tree without following symbolic links to directories; a root that is such a
/// link is entered. Names that begin with a dot are hidden: neither they nor what lies below them
/// is visited. What cannot be read, vanishes, or has a name that the locale cannot express is
/// passed over. Nothing but directories is ever opened, one at a time.
class FileWalker
{
public:
    /// Called for each subdirectory, `depth` levels below the root (1 for a child); true enters it.
    using DirectoryVisitor =
        std::function<bool(const QString &name, const QString &path, int depth)>;
    /// Called for each regular file and each symbolic link to one. False ends the walk.
    using FileVisitor = std::function<bool(const QString &name, const QString &path)>;

    /// `running` is read before every entry; once false the walk ends. Without a file visitor only
    /// directories are visited.
    FileWalker(std::function<bool()> running, DirectoryVisitor onDirectory,
               FileVisitor onFile = nullptr);

    /// `root` must be clean; the paths given to the visitors begin with it. False if the walk was
    /// ended early.
    bool walk(const QString &root);

private:
    struct Directory
    {
        QString path;
        int depth;
    };

    bool readDirectory(const Directory &directory);

    std::function<bool()> m_running;
    DirectoryVisitor m_onDirectory;
    FileVisitor m_onFile;
    QVector<Directory> m_waiting;
};
