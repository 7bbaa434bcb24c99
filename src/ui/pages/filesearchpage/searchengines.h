#pragma once

#include "core/workerthread.h"
#include "search/searchsettings.h"

#include <QObject>
#include <QString>
#include <QStringList>

class FileNameSearchWorker;
class FullTextSearchWorker;
class IndexBuilder;
class IndexWatcher;

namespace filesearch {

/// What runs beside the page: the builder and the two search workers, each on a thread of its own,
/// and the watcher. Calls return at once; answers come as signals of the objects. The destructor
/// stops a build and waits for all threads.
class SearchEngines : public QObject
{
    Q_OBJECT

public:
    explicit SearchEngines(const searchsettings::Paths &paths, QObject *parent = nullptr);
    ~SearchEngines() override;

    // To connect to; their slots are for this class.
    IndexBuilder *builder() const { return m_builder; }
    IndexWatcher *watcher() const { return m_watcher; }
    FileNameSearchWorker *nameWorker() const { return m_nameWorker; }
    FullTextSearchWorker *contentWorker() const { return m_contentWorker; }

    /// Queues a build; `fromScratch` removes the database first. The watcher must be stopped.
    void startBuild(const SearchSettings &settings, bool fromScratch);
    /// The build ends soon with finished().
    void stopBuild();

    /// Gives the watcher the settings and starts it, or leaves it stopped where nothing is to be
    /// watched.
    void restartWatcher(const SearchSettings &settings);
    void stopWatcher();

    /// Lines are in the language that search/query/querylanguage.h tells. A newer one overtakes
    /// those before it.
    void searchNames(const QString &line, int limit, const QString &refine);
    void searchContents(const QString &line, int limit, const QString &refine);
    void queryStats();

private:
    searchsettings::Paths m_paths;
    IndexBuilder *m_builder;
    FileNameSearchWorker *m_nameWorker;
    FullTextSearchWorker *m_contentWorker;
    IndexWatcher *m_watcher;
    core::WorkerThread m_builderThread;
    core::WorkerThread m_nameThread;
    core::WorkerThread m_contentThread;
};

} // namespace filesearch
