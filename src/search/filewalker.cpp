#include "search/filewalker.h"

#include "core/directorystream.h"
#include "core/filename.h"

#include <QFile>

#include <sys/stat.h>
#include <utility>

namespace {

enum class Kind { directory, file, other };

/// Only links and file systems that leave the type out cost a call.
Kind kindOf(int dirFd, const dirent &entry, bool filesWanted)
{
    unsigned char type = entry.d_type;
    struct stat info;
    if (type == DT_UNKNOWN && fstatat(dirFd, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) == 0)
        type = static_cast<unsigned char>(IFTODT(info.st_mode));
    switch (type) {
    case DT_DIR:
        return Kind::directory;
    case DT_REG:
        return Kind::file;
    case DT_LNK:
        return filesWanted && fstatat(dirFd, entry.d_name, &info, 0) == 0 && S_ISREG(info.st_mode)
                   ? Kind::file
                   : Kind::other;
    default:
        return Kind::other;
    }
}

} // namespace

FileWalker::FileWalker(std::function<bool()> running, DirectoryVisitor onDirectory,
                       FileVisitor onFile)
    : m_running(std::move(running))
    , m_onDirectory(std::move(onDirectory))
    , m_onFile(std::move(onFile))
{}

bool FileWalker::walk(const QString &root)
{
    m_waiting = {Directory{root, 0}};
    while (!m_waiting.isEmpty()) {
        if (!readDirectory(m_waiting.takeLast()))
            return false;
    }
    return true;
}

bool FileWalker::readDirectory(const Directory &directory)
{
    if (!m_running())
        return false;
    const core::DirectoryStream dir =
        core::openDirectory(QFile::encodeName(directory.path).constData(), directory.depth == 0);
    if (!dir)
        return true;
    const QString base = directory.path.endsWith(QLatin1Char('/'))
                             ? directory.path
                             : directory.path + QLatin1Char('/');
    while (const dirent *entry = readdir(dir.get())) {
        if (!m_running())
            return false;
        if (entry->d_name[0] == '.')
            continue;
        const Kind kind = kindOf(dirfd(dir.get()), *entry, bool(m_onFile));
        if (kind == Kind::other || (kind == Kind::file && !m_onFile))
            continue;
        const QString name = core::decodedFileName(entry->d_name);
        if (name.isEmpty())
            continue;
        const QString path = base + name;
        if (kind == Kind::file) {
            if (!m_onFile(name, path))
                return false;
        } else if (m_onDirectory(name, path, directory.depth + 1)) {
            m_waiting.append(Directory{path, directory.depth + 1});
        }
    }
    return true;
}
