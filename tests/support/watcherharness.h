#pragma once

#include "search/indexwatcher.h"
#include "support/indexsnapshot.h"
#include "support/temptree.h"

#include <QList>
#include <QObject>
#include <QScopedPointer>
#include <QStringList>

namespace testsupport {

constexpr int slowMs = 60000; ///< Far beyond what a loaded machine needs.

const QString upsert = QStringLiteral("upsert-file");
const QString metaOnly = QStringLiteral("meta-only");
const QString removeFile = QStringLiteral("remove-file");
const QString removeDir = QStringLiteral("remove-dir");

/// Watches that this process holds, as the kernel counts them.
int watchCount();

/// Runs the real watcher on a real tree. `r` is watched, `out` is not, the database lies apart.
class WatcherHarness : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

protected:
    struct Update
    {
        QString path;
        QString action;
        bool success;
    };

    QString at(const TreePath &relative) const { return m_tree->path(relative); }
    IndexSnapshot rows() const { return readIndex(m_dbPath); }
    QStringList indexed() const;
    QString content(const TreePath &relative) const { return rows().value(at(relative)).content; }
    void startWatcher(int watches, const QStringList &excludeDirs = {}, int maxDepth = 0,
                      const QStringList &nameExtensions = {});
    int countOf(const TreePath &relative, const QString &action, bool success = true) const;
    void settle();
    int toolRuns(const TreePath &name) const;

    TempTree m_tools;
    QStringList m_ftsExtensions;
    QScopedPointer<TempTree> m_tree;
    QString m_dbPath;
    QScopedPointer<IndexWatcher> m_watcher;
    QList<Update> m_updates;
    int m_invalidated = 0;
    int m_settled = 0;
};

} // namespace testsupport
