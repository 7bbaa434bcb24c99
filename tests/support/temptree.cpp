#include "support/temptree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <ftw.h>
#include <sys/stat.h>

namespace {

void require(bool done, const char *what, const QString &path)
{
    if (!done)
        qFatal("TempTree: cannot %s %s", what, qPrintable(path));
}

} // namespace

TempTree::TempTree()
    : m_top(QDir::tempPath() + QStringLiteral("/tree-XXXXXX"))
{
    m_top.setAutoRemove(false);
    require(m_top.isValid(), "create", m_top.path());
}

/// Byte by byte, since QTemporaryDir cannot remove names that no QString can hold.
TempTree::~TempTree()
{
    const auto removeEntry = [](const char *path, const struct stat *, int, struct FTW *) {
        return std::remove(path);
    };
    nftw(QFile::encodeName(m_top.path()).constData(), removeEntry, 16, FTW_DEPTH | FTW_PHYS);
}

QString TempTree::path(const TreePath &relative) const
{
    const QString &below = relative.relative;
    return below.isEmpty() ? m_top.path() : m_top.path() + QLatin1Char('/') + below;
}

QString TempTree::dir(const TreePath &relative)
{
    require(QDir().mkpath(path(relative)), "make", path(relative));
    return path(relative);
}

QString TempTree::file(const TreePath &relative, const QByteArray &content)
{
    QFile file(path(relative));
    QDir().mkpath(QFileInfo(file).path());
    require(file.open(QIODevice::WriteOnly) && file.write(content) == content.size(), "write",
            file.fileName());
    return file.fileName();
}

void TempTree::rawFile(const TreePath &dirRelative, const QByteArray &name)
{
    const QByteArray bytes = QFile::encodeName(dir(dirRelative)) + '/' + name;
    std::FILE *file = std::fopen(bytes.constData(), "w");
    require(file && std::fclose(file) == 0, "write", QString::fromLatin1(bytes));
}

QString TempTree::link(const TreePath &relative, const QString &target)
{
    QDir().mkpath(QFileInfo(path(relative)).path());
    require(QFile::link(target, path(relative)), "link", path(relative));
    return path(relative);
}

QString TempTree::fifo(const TreePath &relative)
{
    QDir().mkpath(QFileInfo(path(relative)).path());
    require(mkfifo(QFile::encodeName(path(relative)).constData(), 0600) == 0, "make",
            path(relative));
    return path(relative);
}

QString TempTree::script(const TreePath &relative, const QByteArray &body)
{
    const QString made = file(relative, "#!/bin/sh\n" + body);
    require(QFile::setPermissions(made, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner),
            "make executable", made);
    return made;
}

void TempTree::move(const TreePath &from, const TreePath &to)
{
    require(std::rename(QFile::encodeName(path(from)).constData(),
                        QFile::encodeName(path(to)).constData()) == 0,
            "move", path(from));
}

void TempTree::remove(const TreePath &relative)
{
    const QFileInfo info(path(relative));
    require(info.isDir() && !info.isSymLink() ? QDir(info.filePath()).removeRecursively()
                                              : QFile::remove(info.filePath()),
            "remove", info.filePath());
}
