#include "ui/pages/filesearchpage/searchengines.h"

#include "core/privatefile.h"
#include "search/indexbuilder.h"
#include "search/indexwatcher.h"
#include "search/resultcheck.h"
#include "search/searchworker.h"

#include <QFileInfo>

namespace filesearch {

namespace {

/// What cannot be made shows when the database is opened.
void makeDatabaseFolder(const searchsettings::Paths &paths)
{
    if (!paths.databasePath.isEmpty())
        (void)core::makePrivateDirectory(QFileInfo(paths.databasePath).absolutePath());
}

} // namespace

SearchEngines::SearchEngines(const searchsettings::Paths &paths, QObject *parent)
    : QObject(parent)
    , m_paths(paths)
    , m_builder(new IndexBuilder(searchsettings::activeDbPath(paths)))
    , m_nameWorker(new FileNameSearchWorker(searchsettings::activeDbPath(paths)))
    , m_contentWorker(new FullTextSearchWorker(searchsettings::activeDbPath(paths)))
    , m_watcher(new IndexWatcher(searchsettings::activeDbPath(paths), this))
{
    if (paths.mode == core::AppMode::livecd)
        m_builder->setStoredPathPrefix(paths.targetRoot);
    else // The watcher opens the database before any build; a missing folder would alarm it.
        makeDatabaseFolder(paths);
    m_builderThread.start(m_builder, QStringLiteral("IndexBuilder"));
    m_nameThread.start(m_nameWorker, QStringLiteral("FileNameSearch"));
    m_contentThread.start(m_contentWorker, QStringLiteral("FullTextSearch"));
}

SearchEngines::~SearchEngines()
{
    // The flag ends a running build, the interruption one that is still queued. In this order: a
    // build that begins in between clears the flag and must then meet the interruption.
    m_builder->thread()->requestInterruption();
    m_builder->requestStop();
    m_watcher->stop();
    m_builderThread.stop();
    m_nameThread.stop();
    m_contentThread.stop();
}

void SearchEngines::startBuild(const SearchSettings &settings, bool fromScratch)
{
    // All three run on the builder's thread in this order, so that the page waits for no disk.
    if (fromScratch)
        QMetaObject::invokeMethod(m_builder, "removeDatabase", Qt::QueuedConnection);
    QMetaObject::invokeMethod(
        m_builder, [paths = m_paths] { makeDatabaseFolder(paths); }, Qt::QueuedConnection);
    QMetaObject::invokeMethod(
        m_builder, "startBuild", Qt::QueuedConnection,
        Q_ARG(QStringList, searchsettings::runtimePaths(m_paths, settings.roots)),
        Q_ARG(QStringList, searchsettings::effectiveExcludeDirs(m_paths, settings)),
        Q_ARG(QStringList, QStringList()),
        Q_ARG(QStringList, searchsettings::contentExtensions(settings)),
        Q_ARG(int, settings.indexedTextBytes));
}

void SearchEngines::stopBuild()
{
    m_builder->requestStop();
}

void SearchEngines::restartWatcher(const SearchSettings &settings)
{
    m_watcher->stop();
    const QStringList roots = searchsettings::runtimePaths(m_paths, settings.roots);
    const search::ResultCheck check(
        roots, m_paths.mode == core::AppMode::livecd ? m_paths.targetRoot : QString());
    m_nameWorker->setResultCheck(check);
    m_contentWorker->setResultCheck(check);
    if (!searchsettings::watchesChanges(m_paths, settings))
        return;
    m_watcher->setRoots(roots);
    m_watcher->setIndexOptions(searchsettings::effectiveExcludeDirs(m_paths, settings),
                               QStringList(), searchsettings::contentExtensions(settings),
                               settings.indexedTextBytes, settings.inotifyMaxDepth);
    m_watcher->start();
}

void SearchEngines::stopWatcher()
{
    m_watcher->stop();
}

void SearchEngines::searchNames(const QString &line, int limit, const QString &refine)
{
    m_nameWorker->requestLine(line, limit, refine);
}

void SearchEngines::searchContents(const QString &line, int limit, const QString &refine)
{
    m_contentWorker->requestLine(line, limit, refine);
}

void SearchEngines::queryStats()
{
    QMetaObject::invokeMethod(m_nameWorker, "queryStats", Qt::QueuedConnection);
}

} // namespace filesearch
