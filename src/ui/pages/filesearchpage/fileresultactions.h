#pragma once

#include <QObject>
#include <QSet>
#include <QString>

#include <functional>

namespace filesearch {

enum class FileAction { Open, OpenFolder, Copy, Move, Delete };

/// Carries out what a person does with a found file, by its runtime path: asks, works, and tells
/// the outcome in a notice or by statusChanged(). Moving and deleting run on a pool thread; the
/// file is busy meanwhile.
class FileResultActions : public QObject
{
    Q_OBJECT

public:
    /// `dialogParent` is the parent of notices and of the folder dialog.
    FileResultActions(QWidget *dialogParent, QObject *parent);

    void run(FileAction action, const QString &path);

signals:
    void statusChanged(const QString &text, bool isError);
    void busyPathsChanged(const QSet<QString> &paths);
    /// The file is gone, by us or by someone else.
    void fileGone(const QString &path);
    void fileMoved(const QString &oldPath, const QString &newPath);

private:
    void open(const QString &path);
    void openFolder(const QString &path);
    void copy(const QString &path);
    void move(const QString &path);
    void moveTo(const QString &path, const QString &folder);
    void remove(const QString &path);
    void setBusy(const QString &path, bool busy);
    void tell(const QString &text) { emit statusChanged(text, false); }
    void warn(const QString &title, const QString &message, const QString &detail = QString());

    QWidget *m_dialogParent;
    QSet<QString> m_busyPaths;
};

} // namespace filesearch
