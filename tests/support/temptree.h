#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

/// A path below the top of a tree; takes UTF-8 literals as they are.
struct TreePath
{
    TreePath(const char *utf8)
        : relative(QString::fromUtf8(utf8))
    {}
    TreePath(QLatin1String latin1)
        : relative(latin1)
    {}
    TreePath(const QString &text)
        : relative(text)
    {}

    QString relative;
};

/// A file tree in a temporary folder of its own, removed at the end. Paths are relative to its top;
/// parents are made as needed. Whatever cannot be made ends the test program.
class TempTree
{
public:
    TempTree();
    ~TempTree();

    QString path(const TreePath &relative = QString()) const;
    QString dir(const TreePath &relative);
    QString file(const TreePath &relative, const QByteArray &content = QByteArrayLiteral("text"));
    /// A file whose name is given as raw bytes below a directory.
    void rawFile(const TreePath &dirRelative, const QByteArray &name);
    QString link(const TreePath &relative, const QString &target);
    QString fifo(const TreePath &relative);
    /// An executable shell script, for instance in place of an external tool.
    QString script(const TreePath &relative, const QByteArray &body);
    /// By rename(2): replaces a file, moves a directory with all it holds.
    void move(const TreePath &from, const TreePath &to);
    /// A file, or a directory with all it holds.
    void remove(const TreePath &relative);

private:
    QTemporaryDir m_top;
};
