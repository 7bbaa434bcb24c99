#pragma once

#include <QByteArray>
#include <QString>
#include <QTemporaryDir>

/// A file tree in a temporary folder of its own, removed at the end. Paths are relative to its top;
/// parents are made as needed. Whatever cannot be made ends the test program.
class TempTree
{
public:
    TempTree();
    ~TempTree();

    QString path(const QString &relative = QString()) const;
    QString dir(const QString &relative);
    QString file(const QString &relative, const QByteArray &content = QByteArrayLiteral("text"));
    /// A file whose name is given as raw bytes below a directory.
    void rawFile(const QString &dirRelative, const QByteArray &name);
    QString link(const QString &relative, const QString &target);
    QString fifo(const QString &relative);
    /// An executable shell script, for instance in place of an external tool.
    QString script(const QString &relative, const QByteArray &body);
    /// By rename(2): replaces a file, moves a directory with all it holds.
    void move(const QString &from, const QString &to);
    /// A file, or a directory with all it holds.
    void remove(const QString &relative);

private:
    QTemporaryDir m_top;
};
