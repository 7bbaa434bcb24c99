#pragma once

#include "core/appmode.h"
#include "core/controllers/search/searchpathresolver.h"
#include "search/searchsettings.h"
#include "ui/pages/filesearchpage/resultcache.h"

#include <QStringList>
#include <QVariantList>
#include <QWidget>

class QStackedWidget;
class QTimer;

namespace ui {
namespace common {
class SegmentedToggle;
} // namespace common
} // namespace ui

namespace filesearch {
class BuildProgressCard;
class FileResultActions;
class FirstUseCard;
class SearchEngines;
class SearchPageHeader;
class SearchView;
} // namespace filesearch

/// File search by name and by content over the local index: owns the search context, the engines
/// beside it, the cached answers of the last searches, and what the user sees of them. Paths in the
/// caches are runtime paths.
class FileSearchPage : public QWidget
{
    Q_OBJECT

public:
    explicit FileSearchPage(core::AppMode mode, QWidget *parent = nullptr);
    /// The same over a given search context, which tests and the guided tour make themselves.
    FileSearchPage(core::AppMode mode, const core::controllers::search::SearchRuntimePaths &paths,
                   QWidget *parent = nullptr);
    ~FileSearchPage() override;

public slots:
    void openSettings();
    void startBuild();
    void dismissFirstUseHint();
    void onBuildProgress(int indexedFiles, const QString &currentPath);
    void onBuildFinished(bool success, const QString &message);
    void onToolsMissing(const QStringList &details);
    void triggerNameSearch();
    void triggerContentSearch();
    void onNameSearchCompleted(const QVariantList &results, const QString &error);
    void onContentSearchCompleted(const QVariantList &results, const QString &error);
    void onIncrementalIndexUpdated(const QString &path, const QString &action, bool success);
    void onIndexInvalidated();
    void onStatsReady(qint64 fileCount, qint64 ftsCount, qint64 lastUpdatedMs, bool ok);

private:
    void buildHeader();
    void buildCards();
    void buildViews();
    void wireTimers();
    void wireEngines();
    void wireActions();
    void begin();
    void showStartState();
    void showMissingIndex();

    void startBuildInternal(const QString &text, bool rebuild);
    void restartFollowing();
    void showProgress();
    void setFirstUseVisible(bool visible);
    void warnAboutMissingTools();

    void takeSettings(const SearchSettings &chosen);
    void applyFilters(filesearch::SearchView *view, const filesearch::ResultCache &cache,
                      bool keepPlace);
    void forgetFile(const QString &path);
    void renameFile(const QString &oldPath, const QString &newPath);

    core::AppMode m_mode;
    core::controllers::search::SearchRuntimePaths m_paths;
    SearchSettings m_settings;
    filesearch::SearchEngines *m_engines;
    filesearch::FileResultActions *m_actions;

    filesearch::ResultCache m_cachedNameResults;
    filesearch::ResultCache m_cachedFtsResults;
    bool m_building = false;
    bool m_hasBuilt = false; ///< In this run.
    bool m_hintDismissed = false;
    bool m_fromScratch = true;       ///< The build that runs, or the last one.
    bool m_buildFoundDamage = false; ///< Likewise.
    bool m_lastBuildFailed = false;  ///< From scratch, and the user did not stop it.
    bool m_failureStands = false;    ///< The last build's, in the status line.
    qint64 m_cutTexts = 0;           ///< Documents of which only the beginning is indexed.
    int m_lastIndexedCount = 0;
    QString m_lastProgressPath;
    QStringList m_pendingMissingTools;
    QStringList m_shownMissingTools;

    QTimer *m_progressTimer;
    QTimer *m_incrementalTimer;

    filesearch::SearchPageHeader *m_header = nullptr;
    filesearch::FirstUseCard *m_firstUseCard = nullptr;
    filesearch::BuildProgressCard *m_progressCard = nullptr;
    ui::common::SegmentedToggle *m_toggle = nullptr;
    QStackedWidget *m_views = nullptr;
    filesearch::SearchView *m_nameView = nullptr;
    filesearch::SearchView *m_contentView = nullptr;
};
