#pragma once

#include "core/workerthread.h"

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <vector>

class WechatCleanWorker;

namespace wechatclean {

/// What runs beside the page. Each task of the cleaner gets a worker and a thread of its own, since
/// a stop is final for a worker; one at a time. Calls return at once, answers come as signals, in
/// the words of WechatCleanWorker. Reading of records and of a folder chosen by hand goes to the
/// global pool and may run beside a task.
///
/// The destructor stops a task and waits for it: a clean ends after the path it is at, an undo runs
/// to its end.
class CleanTasks : public QObject
{
    Q_OBJECT

public:
    /// An empty home means the user's.
    explicit CleanTasks(const QString &home, QObject *parent = nullptr);
    ~CleanTasks() override;

    /// True from the start of a task up to its last signal.
    bool isBusy() const { return m_worker != nullptr; }

    // Ignored while a task runs.
    void recoverInterrupted();
    void detectWechatDirs();
    void startScan(const QStringList &dirs, qint64 minSize, qint64 estimatedBytes);
    void runPreflightCheck(const QVariantList &actions);
    void executeClean(const QVariantList &actions);
    void undoCleanSession(const QString &sessionId);
    /// The task ends soon, with its last signal.
    void requestStop();

    void readRecords();
    void readRecord(const QString &sessionId);
    void detectInRoot(const QString &root);

signals:
    void recoveryFinished(const QStringList &restored, const QStringList &removed,
                          const QStringList &errors, const QStringList &unavailable);
    void detectFinished(const QList<QVariant> &profiles);
    void progressChanged(int percent, const QString &text);
    void duplicateGroupsReady(const QList<QVariant> &groups);
    void scanFinished(bool ok, const QString &message, int groupCount);
    void mergeableActionsReady(const QVariantList &actions, const QStringList &elsewhere);
    void preflightFinished(bool ok, const QStringList &warnings, const QStringList &issues);
    void cleanProgressChanged(int done, int total);
    void cleanFinished(bool ok, int mergedCount, qint64 reclaimedBytes, const QString &sessionId,
                       const QStringList &errors);
    void undoFinished(bool ok, const QString &sessionId, int restoredCount,
                      const QStringList &errors);

    /// Records newest first, and how many files were none.
    void recordsRead(const QVariantList &records, int refused);
    /// Empty if there is no such record.
    void recordRead(const QString &sessionId, const QVariantMap &record);
    /// Profiles found below the root, or the root itself as one.
    void rootDetected(const QVariantList &profiles);

private:
    using Task = std::function<void(WechatCleanWorker *)>;

    void begin(const Task &task);
    void forward(WechatCleanWorker *worker, int run);
    template <typename... Arguments>
    auto whileRunning(int run, void (CleanTasks::*signal)(Arguments...));
    template <typename... Arguments>
    auto atEnd(int run, void (CleanTasks::*signal)(Arguments...));
    void finish();

    QString m_home;
    int m_run = 0;
    WechatCleanWorker *m_worker = nullptr; ///< Of the running task, alive as long as it runs.
    std::unique_ptr<core::WorkerThread> m_thread;
    std::vector<std::unique_ptr<core::WorkerThread>> m_ending; ///< Of tasks that have ended.
};

} // namespace wechatclean
