#pragma once

#include "core/runinpool.h"

namespace diskanalyzer {

/// Threads of the page's own. A scan that compares files has the global pool to itself, for minutes
/// on large ones; what it found before must come up meanwhile, and directories be looked into.
inline QThreadPool *pagePool()
{
    static QThreadPool pool;
    return &pool;
}

/// core::runInPool() on the pool of the page.
template <typename Work, typename Done>
void runInPool(QObject *context, Work work, Done done)
{
    core::runInPool(pagePool(), context, std::move(work), std::move(done));
}

} // namespace diskanalyzer
