#pragma once

#include "ui/pages/diskanalyzerpage/duplicategroups.h"
#include "ui/pages/diskanalyzerpage/filedeletion.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"

#include <QObject>
#include <QStringList>
#include <QVector>

#include <atomic>
#include <memory>

class QWidget;

namespace diskanalyzer {

/// Asks before files are removed, removes them on a pool thread and tells what came of it. One
/// removal at a time. What is left of it at the end of the flow's life is not removed.
class DeletionFlow : public QObject
{
    Q_OBJECT

public:
    /// Notices stand over `window`, which owns the flow.
    explicit DeletionFlow(QWidget *window);
    ~DeletionFlow() override;

    /// Directories whose files reach the vault instead.
    void setProtectedDirs(const QStringList &dirs) { m_protectedDirs = dirs; }
    bool isRunning() const { return m_running; }

    // All of these block in dialogs.
    void deleteLargeFiles(const QVector<LargeFile> &files);
    void cleanGroup(const DuplicateGroup &group);
    void cleanAll(const DuplicateResult &result);

signals:
    void runningChanged(bool running);
    /// Before the user is told.
    void removed(const QVector<diskanalyzer::ScannedFile> &files);

private:
    /// Files among those to be removed that reach the vault.
    int protectedCount(const QVector<DeletionGroup> &groups) const;
    void confirmAndRun(const QString &question, const QVector<DeletionGroup> &groups);
    void run(const QVector<DeletionGroup> &groups);
    void finish(const DeletionReport &report, bool asDuplicates);

    QWidget *m_window;
    QStringList m_protectedDirs;
    bool m_running = false;
    std::shared_ptr<std::atomic<bool>> m_stop;
};

} // namespace diskanalyzer
