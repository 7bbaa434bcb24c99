#pragma once

#include <QObject>
#include <QThread>

namespace core {

/// Owns a thread and the one worker that lives on it: the worker is moved there, the thread starts
/// at once, and the worker goes by deleteLater() when the thread finishes. The worker must have no
/// parent. Reach it by queued calls only.
///
/// The destructor quits the thread and waits for it, so a worker that may be busy must be told to
/// stop first.
class WorkerThread
{
public:
    WorkerThread() = default;
    ~WorkerThread() { stop(); }

    WorkerThread(const WorkerThread &) = delete;
    WorkerThread &operator=(const WorkerThread &) = delete;

    /// Takes ownership of `worker` and starts the thread under the given name. Call once.
    void start(QObject *worker, const QString &name)
    {
        m_thread.setObjectName(name);
        worker->moveToThread(&m_thread);
        QObject::connect(&m_thread, &QThread::finished, worker, &QObject::deleteLater);
        m_thread.start();
    }

    /// Quits and waits without limit. Safe to call twice, or without a start.
    void stop()
    {
        m_thread.quit();
        m_thread.wait();
    }

    bool isRunning() const { return m_thread.isRunning(); }

private:
    QThread m_thread;
};

} // namespace core
