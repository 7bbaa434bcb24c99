#include "ui/pages/wechatcleanpage/cleantasks.h"

#include "ui/pages/wechatcleanpage/cleanrecords.h"
#include "ui/pages/wechatcleanpage/profilerules.h"
#include "wechat/nativewechatdetector.h"
#include "wechat/wechatcleanworker.h"

#include <QFutureWatcher>
#include <QThread>
#include <QtConcurrent>

#include <algorithm>

namespace wechatclean {

namespace {

struct RecordList
{
    QVariantList records;
    int refused = 0;
};

/// Runs `read` on the global pool and `take` with its result on the owner's thread, unless the
/// owner has gone by then. `read` may hold values only.
template <typename Read, typename Take>
void readBeside(QObject *owner, Read read, Take take)
{
    using Result = decltype(read());
    auto *watcher = new QFutureWatcher<Result>(owner);
    QObject::connect(watcher, &QFutureWatcherBase::finished, owner, [watcher, take] {
        watcher->deleteLater();
        take(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(read));
}

} // namespace

CleanTasks::CleanTasks(const QString &home, QObject *parent)
    : QObject(parent)
    , m_home(home)
{}

CleanTasks::~CleanTasks()
{
    requestStop();
}

template <typename... Arguments>
auto CleanTasks::whileRunning(int run, void (CleanTasks::*signal)(Arguments...))
{
    return [this, run, signal](Arguments... arguments) {
        if (run == m_run && m_worker)
            (this->*signal)(arguments...);
    };
}

template <typename... Arguments>
auto CleanTasks::atEnd(int run, void (CleanTasks::*signal)(Arguments...))
{
    return [this, run, signal](Arguments... arguments) {
        if (run != m_run || !m_worker)
            return;
        finish();
        (this->*signal)(arguments...);
    };
}

void CleanTasks::forward(WechatCleanWorker *worker, int run)
{
    using Worker = WechatCleanWorker;
    connect(worker, &Worker::progressChanged, this,
            whileRunning(run, &CleanTasks::progressChanged));
    connect(worker, &Worker::duplicateGroupsReady, this,
            whileRunning(run, &CleanTasks::duplicateGroupsReady));
    connect(worker, &Worker::cleanProgressChanged, this,
            whileRunning(run, &CleanTasks::cleanProgressChanged));
    connect(worker, &Worker::mergeableActionsReady, this,
            whileRunning(run, &CleanTasks::mergeableActionsReady));
    connect(worker, &Worker::recoveryFinished, this, atEnd(run, &CleanTasks::recoveryFinished));
    connect(worker, &Worker::detectFinished, this, atEnd(run, &CleanTasks::detectFinished));
    connect(worker, &Worker::scanFinished, this, atEnd(run, &CleanTasks::scanFinished));
    connect(worker, &Worker::preflightFinished, this, atEnd(run, &CleanTasks::preflightFinished));
    connect(worker, &Worker::cleanFinished, this, atEnd(run, &CleanTasks::cleanFinished));
    connect(worker, &Worker::undoFinished, this, atEnd(run, &CleanTasks::undoFinished));
}

void CleanTasks::begin(const Task &task)
{
    if (m_worker)
        return;
    const auto ended = std::remove_if(
        m_ending.begin(), m_ending.end(),
        [](const std::unique_ptr<core::WorkerThread> &thread) { return !thread->isRunning(); });
    m_ending.erase(ended, m_ending.end());
    m_worker = new WechatCleanWorker(m_home);
    forward(m_worker, ++m_run);
    m_thread = std::make_unique<core::WorkerThread>();
    m_thread->start(m_worker, QStringLiteral("WechatClean"));
    WechatCleanWorker *worker = m_worker;
    QMetaObject::invokeMethod(
        worker, [worker, task] { task(worker); }, Qt::QueuedConnection);
}

void CleanTasks::finish()
{
    // The slot that sent the last signal may still be freeing what it held: its thread is told to
    // end by itself, and nobody waits.
    QMetaObject::invokeMethod(
        m_worker, [] { QThread::currentThread()->quit(); }, Qt::QueuedConnection);
    m_worker = nullptr;
    m_ending.push_back(std::move(m_thread));
}

void CleanTasks::recoverInterrupted()
{
    begin([](WechatCleanWorker *worker) { worker->recoverInterrupted(); });
}

void CleanTasks::detectWechatDirs()
{
    begin([](WechatCleanWorker *worker) { worker->detectWechatDirs(); });
}

void CleanTasks::startScan(const QStringList &dirs, qint64 minSize, qint64 estimatedBytes)
{
    begin([=](WechatCleanWorker *worker) { worker->startScan(dirs, minSize, estimatedBytes); });
}

void CleanTasks::runPreflightCheck(const QVariantList &actions)
{
    begin([actions](WechatCleanWorker *worker) { worker->runPreflightCheck(actions); });
}

void CleanTasks::executeClean(const QVariantList &actions)
{
    begin([actions](WechatCleanWorker *worker) { worker->executeClean(actions); });
}

void CleanTasks::undoCleanSession(const QString &sessionId)
{
    begin([sessionId](WechatCleanWorker *worker) { worker->undoCleanSession(sessionId); });
}

void CleanTasks::requestStop()
{
    if (m_worker)
        m_worker->requestStop();
}

void CleanTasks::readRecords()
{
    const QString folder = WechatCleanWorker::operationsDirPath(m_home);
    readBeside(
        this,
        [folder] {
            RecordList list;
            list.records = loadOperationRecords(folder, &list.refused);
            return list;
        },
        [this](const RecordList &list) { emit recordsRead(list.records, list.refused); });
}

void CleanTasks::readRecord(const QString &sessionId)
{
    const QString folder = WechatCleanWorker::operationsDirPath(m_home);
    readBeside(
        this, [folder, sessionId] { return loadOperationRecord(folder, sessionId); },
        [this, sessionId](const QVariantMap &record) { emit recordRead(sessionId, record); });
}

void CleanTasks::detectInRoot(const QString &root)
{
    const QString home = m_home;
    readBeside(
        this,
        [home, root] {
            QVariantList maps;
            const QList<WechatProfile> profiles = NativeWechatDetector(home).detectInRoot(root);
            for (const WechatProfile &profile : profiles)
                maps.append(WechatCleanWorker::profileToVariantMap(profile));
            return maps.isEmpty() ? QVariantList{manualProfile(root)} : maps;
        },
        [this](const QVariantList &profiles) { emit rootDetected(profiles); });
}

} // namespace wechatclean
