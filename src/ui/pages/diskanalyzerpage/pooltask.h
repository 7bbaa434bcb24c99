#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QThreadPool>
#include <QtConcurrentRun>

#include <utility>

namespace diskanalyzer {

/// Threads of the page's own. A scan that compares files has the global pool to itself, for minutes
/// on large ones; what it found before must come up meanwhile, and directories be looked into.
inline QThreadPool *pagePool()
{
    static QThreadPool pool;
    return &pool;
}

/// Runs `work` on the pool of the page and `done` with its result on the thread of `context`,
/// unless that has gone by then. `work` takes values only.
template <typename Work, typename Done>
void runInPool(QObject *context, Work work, Done done)
{
    using Result = decltype(work());
    auto *watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcher<Result>::finished, context, [watcher, done] {
        watcher->deleteLater();
        done(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(pagePool(), std::move(work)));
}

} // namespace diskanalyzer
