#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QThreadPool>
#include <QtConcurrentRun>

#include <utility>

namespace core {

/// Runs `work` on the pool and hands its result to `done` on the thread of `context`. If
/// `context` is deleted first, the work still ends but `done` is not called. `work` must not touch
/// `context`. Users link Qt5::Concurrent.
template <typename Work, typename Done>
void runInPool(QThreadPool *pool, QObject *context, Work work, Done done)
{
    using Result = decltype(work());
    auto *watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcher<Result>::finished, context,
                     [watcher, done = std::move(done)] {
                         watcher->deleteLater();
                         if constexpr (std::is_void_v<Result>)
                             done();
                         else
                             done(watcher->result());
                     });
    watcher->setFuture(QtConcurrent::run(pool, std::move(work)));
}

/// The same on the global pool.
template <typename Work, typename Done>
void runInPool(QObject *context, Work work, Done done)
{
    runInPool(QThreadPool::globalInstance(), context, std::move(work), std::move(done));
}

} // namespace core
