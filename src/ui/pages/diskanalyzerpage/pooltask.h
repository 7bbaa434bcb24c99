#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QtConcurrentRun>

#include <utility>

namespace diskanalyzer {

/// Runs `work` on the global pool and `done` with its result on the thread of `context`, unless
/// that has gone by then. `work` takes values only.
template <typename Work, typename Done>
void runInPool(QObject *context, Work work, Done done)
{
    using Result = decltype(work());
    auto *watcher = new QFutureWatcher<Result>(context);
    QObject::connect(watcher, &QFutureWatcher<Result>::finished, context, [watcher, done] {
        watcher->deleteLater();
        done(watcher->result());
    });
    watcher->setFuture(QtConcurrent::run(std::move(work)));
}

} // namespace diskanalyzer
