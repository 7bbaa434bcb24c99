#include "ui/pages/filesearchpage.h"

#include "search/indexbuilder.h"
#include "search/indexwatcher.h"
#include "search/searchfilters.h"
#include "search/searchworker.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/segmentedtoggle.h"
#include "ui/common/styletemplate.h"
#include "ui/common/utils/formatutils.h"
#include "ui/pages/filesearchpage/fileresultactions.h"
#include "ui/pages/filesearchpage/indexcards.h"
#include "ui/pages/filesearchpage/searchengines.h"
#include "ui/pages/filesearchpage/searchpageheader.h"
#include "ui/pages/filesearchpage/searchview.h"
#include "ui/pages/indexsettingsdialog.h"

#include <QFileInfo>
#include <QPointer>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

using core::AppMode;
using core::controllers::search::SearchPathResolver;
using filesearch::BuildProgressCard;
using filesearch::FileResultActions;
using filesearch::FirstUseCard;
using filesearch::ResultCache;
using filesearch::SearchEngines;
using filesearch::SearchPageHeader;
using filesearch::SearchView;
using ui::common::AppNoticeDialog;
using ui::common::SegmentedToggle;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kProgressRefreshMs = 200;
constexpr int kNameLimit = 200;
constexpr int kContentLimit = 100;

/// A build whose text holds this word keeps the database.
const QString kIncrementalWord = QStringLiteral("增量");

/// The dialog shows runtime paths; the settings store those of the target system.
IndexSettingsDialog::Settings shownSettings(const searchsettings::Paths &paths,
                                            const SearchSettings &settings)
{
    IndexSettingsDialog::Settings shown;
    shown.roots = searchsettings::runtimePaths(paths, settings.roots);
    shown.excludeDirs = searchsettings::runtimePaths(paths, settings.excludeDirs);
    shown.ftsExtensions = settings.ftsExtensions;
    shown.moreTextTypes = settings.moreTextTypes;
    shown.indexedTextBytes = settings.indexedTextBytes;
    shown.autoRebuild = settings.autoRebuild;
    shown.inotifyMaxDepth = settings.inotifyMaxDepth;
    shown.incrementalIntervalHours = settings.incrementalIntervalHours;
    return shown;
}

SearchSettings storedSettings(const searchsettings::Paths &paths,
                              const IndexSettingsDialog::Settings &shown)
{
    SearchSettings settings;
    settings.roots = searchsettings::storedPaths(paths, shown.roots);
    settings.excludeDirs = searchsettings::storedPaths(paths, shown.excludeDirs);
    settings.ftsExtensions = shown.ftsExtensions;
    settings.moreTextTypes = shown.moreTextTypes;
    settings.indexedTextBytes = shown.indexedTextBytes;
    settings.autoRebuild = shown.autoRebuild;
    settings.inotifyMaxDepth = shown.inotifyMaxDepth;
    settings.incrementalIntervalHours = shown.incrementalIntervalHours;
    return settings;
}

/// What only this page needs.
QString pageSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QLabel#SearchStats, QLabel#ResultFooter { font-size: @12px@; color: @groundMuted@; }
QListView#ContentResultList { padding: 0px; }
QFrame#KeywordTagInput:disabled { background: @headerBackground@; border-color: @borderSubtle@; }
)qss"));
}

} // namespace

FileSearchPage::FileSearchPage(AppMode mode, QWidget *parent)
    : FileSearchPage(mode, SearchPathResolver::resolve(mode), parent)
{}

FileSearchPage::FileSearchPage(AppMode mode,
                               const core::controllers::search::SearchRuntimePaths &paths,
                               QWidget *parent)
    : QWidget(parent)
    , m_mode(mode)
    , m_paths(paths)
    , m_settings(searchsettings::load(paths))
    , m_engines(new SearchEngines(paths, this))
    , m_actions(new FileResultActions(this, this))
    , m_progressTimer(new QTimer(this))
    , m_incrementalTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("FileSearchPage"));
    setStyleSheet(pageSheet());
    buildHeader();
    buildCards();
    buildViews();
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kCardGap);
    layout->setSpacing(metrics::kCardGap);
    layout->addWidget(m_header);
    layout->addWidget(m_firstUseCard);
    layout->addWidget(m_progressCard);
    layout->addWidget(m_toggle, 0, Qt::AlignLeft);
    layout->addWidget(m_views, 1);

    wireTimers();
    wireEngines();
    wireActions();
    begin();
}

FileSearchPage::~FileSearchPage()
{
    // While the widgets that late signals would reach are still there.
    delete m_engines;
}

void FileSearchPage::buildHeader()
{
    m_header = new SearchPageHeader(this);
    connect(m_header, &SearchPageHeader::settingsRequested, this, &FileSearchPage::openSettings);
    connect(m_header, &SearchPageHeader::buildRequested, this, &FileSearchPage::startBuild);
}

void FileSearchPage::buildCards()
{
    m_firstUseCard = new FirstUseCard(this);
    m_firstUseCard->hide();
    m_progressCard = new BuildProgressCard(this);
    m_progressCard->hide();
    connect(m_firstUseCard, &FirstUseCard::createRequested, this, &FileSearchPage::startBuild);
    connect(m_firstUseCard, &FirstUseCard::dismissed, this, &FileSearchPage::dismissFirstUseHint);
    connect(m_progressCard, &BuildProgressCard::stopRequested, this, [this] {
        m_engines->stopBuild();
        m_header->setStatus(tr("正在停止索引构建..."));
    });
}

void FileSearchPage::buildViews()
{
    m_nameView = new SearchView(SearchView::Names, this);
    m_contentView = new SearchView(SearchView::Contents, this);
    m_views = new QStackedWidget(this);
    m_views->addWidget(m_nameView);
    m_views->addWidget(m_contentView);
    m_toggle = new SegmentedToggle({tr("文件名搜索"), tr("全文检索")}, this);
    connect(m_toggle, &SegmentedToggle::currentIndexChanged, this, [this](int index) {
        m_views->setCurrentIndex(index);
        m_views->currentWidget()->setFocus();
    });
    connect(m_nameView, &SearchView::searchRequested, this, &FileSearchPage::triggerNameSearch);
    connect(m_contentView, &SearchView::searchRequested, this,
            &FileSearchPage::triggerContentSearch);
    connect(m_nameView, &SearchView::filtersChanged, this,
            [this] { applyFilters(m_nameView, m_cachedNameResults, false); });
    connect(m_contentView, &SearchView::filtersChanged, this,
            [this] { applyFilters(m_contentView, m_cachedFtsResults, false); });
}

void FileSearchPage::wireTimers()
{
    m_progressTimer->setSingleShot(true);
    m_progressTimer->setInterval(kProgressRefreshMs);
    connect(m_progressTimer, &QTimer::timeout, this, &FileSearchPage::showProgress);
    connect(m_incrementalTimer, &QTimer::timeout, this, [this] {
        if (!m_building)
            startBuildInternal(tr("定时增量刷新索引..."), true);
    });
}

void FileSearchPage::wireEngines()
{
    connect(m_engines->builder(), &IndexBuilder::progressChanged, this,
            &FileSearchPage::onBuildProgress);
    connect(m_engines->builder(), &IndexBuilder::toolsMissing, this,
            &FileSearchPage::onToolsMissing);
    connect(m_engines->builder(), &IndexBuilder::indexDamaged, this,
            [this] { m_buildFoundDamage = true; });
    connect(m_engines->builder(), &IndexBuilder::finished, this, &FileSearchPage::onBuildFinished);
    connect(m_engines->nameWorker(), &FileNameSearchWorker::searchCompleted, this,
            &FileSearchPage::onNameSearchCompleted);
    connect(m_engines->nameWorker(), &FileNameSearchWorker::statsReady, this,
            &FileSearchPage::onStatsReady);
    connect(m_engines->nameWorker(), &FileNameSearchWorker::cutTextsCounted, this,
            [this](qint64 count) { m_cutTexts = count; });
    connect(m_engines->contentWorker(), &FullTextSearchWorker::searchCompleted, this,
            &FileSearchPage::onContentSearchCompleted);
    connect(m_engines->watcher(), &IndexWatcher::indexIncrementalUpdated, this,
            &FileSearchPage::onIncrementalIndexUpdated);
    connect(m_engines->watcher(), &IndexWatcher::foldersNotFollowed, m_header,
            &SearchPageHeader::setUnfollowed);
    connect(m_engines->watcher(), &IndexWatcher::indexInvalidated, this,
            &FileSearchPage::onIndexInvalidated);
}

void FileSearchPage::wireActions()
{
    for (SearchView *view : {m_nameView, m_contentView}) {
        connect(view, &SearchView::actionRequested, m_actions, &FileResultActions::run);
        connect(m_actions, &FileResultActions::busyPathsChanged, view, &SearchView::setBusyPaths);
    }
    connect(m_actions, &FileResultActions::statusChanged, m_header, &SearchPageHeader::setOutcome);
    connect(m_actions, &FileResultActions::fileGone, this, &FileSearchPage::forgetFile);
    connect(m_actions, &FileResultActions::fileMoved, this, &FileSearchPage::renameFile);
}

void FileSearchPage::begin()
{
    // Before the watcher starts: it opens the database and so creates an empty one.
    showStartState();
    if (SearchPathResolver::isAvailable(m_paths))
        restartFollowing();
    m_engines->queryStats();
}

void FileSearchPage::showStartState()
{
    if (!SearchPathResolver::isAvailable(m_paths)) {
        m_header->setStatus(m_paths.errorMessage, true);
        m_nameView->showUnavailable();
        m_contentView->showUnavailable();
        return;
    }
    const QFileInfo database(searchsettings::activeDbPath(m_paths));
    if (database.exists() && database.size() > 0)
        m_header->setStatus(tr("索引已就绪"));
    else
        showMissingIndex();
}

void FileSearchPage::showMissingIndex()
{
    if (m_mode == AppMode::livecd) {
        m_header->setStatus(tr("恢复环境模式下请先点击'构建索引'。"));
        return;
    }
    m_header->setStatus(tr("首次使用请先点击'构建索引'。"));
    setFirstUseVisible(true);
}

void FileSearchPage::setFirstUseVisible(bool visible)
{
    m_firstUseCard->setVisible(visible);
    // One main button at a time: the card brings its own.
    m_header->setBuildIsMain(!visible);
}

void FileSearchPage::dismissFirstUseHint()
{
    m_hintDismissed = true;
    setFirstUseVisible(false);
    m_header->setStatus(tr("你可以随时点击'构建索引'开始索引。"));
}

void FileSearchPage::startBuild()
{
    if (!SearchPathResolver::isAvailable(m_paths)) {
        AppNoticeDialog::showWarning(this, tr("无法构建索引"), m_paths.errorMessage);
        return;
    }
    startBuildInternal(tr("正在构建索引..."), true);
}

void FileSearchPage::startBuildInternal(const QString &text, bool rebuild)
{
    if (m_building) {
        m_header->setStatus(tr("索引构建正在进行中"));
        return;
    }
    if (m_settings.roots.isEmpty()) {
        m_settings.roots = searchsettings::defaults(m_paths).roots;
        QString error;
        if (!searchsettings::save(m_paths, m_settings, &error))
            qWarning().noquote() << "[FileSearchPage]" << error;
    }
    // The watcher must be gone before the file is removed.
    m_engines->stopWatcher();
    m_building = true;
    m_header->setStatus(text);
    setFirstUseVisible(false);
    m_progressCard->reset();
    m_fromScratch = rebuild && !text.contains(kIncrementalWord);
    m_buildFoundDamage = false;
    m_engines->startBuild(m_settings, m_fromScratch);
}

void FileSearchPage::onBuildProgress(int indexedFiles, const QString &currentPath)
{
    m_lastIndexedCount = indexedFiles;
    m_lastProgressPath = currentPath;
    if (m_progressTimer->isActive())
        return;
    showProgress();
    m_progressTimer->start();
}

void FileSearchPage::showProgress()
{
    // A message in place of a path may hold a slash too, as in "3 / 10".
    const QString what = m_lastProgressPath.startsWith(QLatin1Char('/'))
                             ? QFileInfo(m_lastProgressPath).fileName()
                             : m_lastProgressPath;
    m_progressCard->setText(
        tr("已扫描 %1 个文件 — %2").arg(QString::number(m_lastIndexedCount), what));
    m_progressCard->show();
}

void FileSearchPage::onBuildFinished(bool success, const QString &message)
{
    m_building = false;
    m_hasBuilt = m_hasBuilt || success;
    m_failureStands = !success;
    if (success)
        m_lastBuildFailed = false;
    else if (m_fromScratch && message != IndexBuilder::cancelledMessage())
        m_lastBuildFailed = true;
    m_progressTimer->stop();
    m_progressCard->hide();
    m_header->setOutcome(message, !success);
    if (m_buildFoundDamage && !m_fromScratch && m_settings.autoRebuild) {
        // Once: a rebuild that fails too is not repeated.
        startBuildInternal(tr("索引文件已损坏，正在重新构建索引..."), true);
        return;
    }
    m_engines->queryStats();
    restartFollowing();
    if (!m_nameView->searchText().isEmpty())
        triggerNameSearch();
    if (!m_contentView->searchText().isEmpty())
        triggerContentSearch();
    warnAboutMissingTools();
}

void FileSearchPage::restartFollowing()
{
    m_engines->restartWatcher(m_settings);
    m_incrementalTimer->stop();
    const int interval = searchsettings::incrementalIntervalMs(m_settings);
    if (interval > 0)
        m_incrementalTimer->start(interval);
}

void FileSearchPage::onToolsMissing(const QStringList &details)
{
    m_pendingMissingTools = details;
}

void FileSearchPage::warnAboutMissingTools()
{
    if (m_pendingMissingTools.isEmpty() || !window()->isVisible())
        return;
    const QStringList lines = m_pendingMissingTools;
    m_pendingMissingTools.clear();
    // Every build reports them again; saying it once is enough until they change.
    if (lines == m_shownMissingTools)
        return;
    m_shownMissingTools = lines;
    AppNoticeDialog::showWarning(
        this, tr("部分全文提取工具缺失"),
        tr("以下工具未安装，相关格式的文件将无法提取文本内容进行全文索引：") + QLatin1Char('\n') +
            lines.join(QLatin1Char('\n')));
}

void FileSearchPage::onIndexInvalidated()
{
    if (m_building)
        return;
    const QString hint = tr("检测到文件系统变化，请重建索引以获得最新结果。");
    // After a failed build from scratch the watcher fails as well: rebuilding by itself would never
    // end, and why the build failed says more than the hint.
    if (m_lastBuildFailed)
        m_header->setNews(hint);
    else if (m_settings.autoRebuild)
        startBuild();
    else
        m_header->setStatus(hint);
}

void FileSearchPage::onIncrementalIndexUpdated(const QString &path, const QString &action,
                                               bool success)
{
    Q_UNUSED(action)
    if (!success) {
        m_header->setStatus(tr("增量更新失败，请手动重建索引。"), true);
        return;
    }
    // A file that the user just moved is soon seen by the watcher as well.
    m_header->setNews(tr("索引已增量更新：%1").arg(path));
}

void FileSearchPage::onStatsReady(qint64 fileCount, qint64 ftsCount, qint64 lastUpdatedMs, bool ok)
{
    const bool available = SearchPathResolver::isAvailable(m_paths);
    if (!ok || !available) {
        m_header->setStatistics(tr("索引状态：不可用"));
        return;
    }
    QString statistics = tr("文件名索引：%1 个文件 | 全文索引：%2 条 | 上次更新：%3")
                             .arg(QString::number(fileCount), QString::number(ftsCount),
                                  ui::common::utils::formatTimestamp(lastUpdatedMs));
    if (m_cutTexts > 0)
        statistics += tr(" | 其中 %1 个文档只索引了开头").arg(m_cutTexts);
    m_header->setStatistics(statistics);
    // Asking creates an empty database, which must not pass for an index at the next start.
    if (fileCount > 0 || m_building || m_hasBuilt || m_hintDismissed)
        return;
    if (m_failureStands) // Why it failed still stands in the status line.
        setFirstUseVisible(m_mode == AppMode::normal);
    else
        showMissingIndex();
}

void FileSearchPage::triggerNameSearch()
{
    const QString text = m_nameView->searchText();
    if (text.isEmpty()) {
        m_cachedNameResults.clear();
        m_nameView->showIdle();
        return;
    }
    m_nameView->showSearching();
    m_engines->searchNames(text, kNameLimit, m_nameView->refineString());
}

void FileSearchPage::triggerContentSearch()
{
    const QString text = m_contentView->searchText();
    if (text.isEmpty()) {
        m_cachedFtsResults.clear();
        m_contentView->showIdle();
        return;
    }
    m_contentView->showSearching();
    m_engines->searchContents(text, kContentLimit, m_contentView->refineString());
}

void FileSearchPage::onNameSearchCompleted(const QVariantList &results, const QString &error)
{
    if (!error.isEmpty())
        m_header->setStatus(tr("文件名搜索失败：%1").arg(error), true);
    m_cachedNameResults.set(results, error, m_paths);
    applyFilters(m_nameView, m_cachedNameResults, false);
}

void FileSearchPage::onContentSearchCompleted(const QVariantList &results, const QString &error)
{
    if (!error.isEmpty())
        m_header->setStatus(tr("全文搜索失败：%1").arg(error), true);
    m_cachedFtsResults.set(results, error, m_paths);
    applyFilters(m_contentView, m_cachedFtsResults, false);
}

void FileSearchPage::applyFilters(SearchView *view, const ResultCache &cache, bool keepPlace)
{
    // An answer that comes after the text was cleared has nobody waiting for it.
    if (view->searchText().isEmpty())
        return;
    const QVariantList kept = searchfilters::filtered(cache.results(), view->rowFilter(),
                                                      QDateTime::currentMSecsSinceEpoch());
    view->showResults(kept, cache.results().size(), cache.error(), keepPlace);
}

void FileSearchPage::forgetFile(const QString &path)
{
    m_cachedNameResults.removeFile(path);
    m_cachedFtsResults.removeFile(path);
    applyFilters(m_nameView, m_cachedNameResults, true);
    applyFilters(m_contentView, m_cachedFtsResults, true);
}

void FileSearchPage::renameFile(const QString &oldPath, const QString &newPath)
{
    m_cachedNameResults.renameFile(oldPath, newPath);
    m_cachedFtsResults.renameFile(oldPath, newPath);
    applyFilters(m_nameView, m_cachedNameResults, true);
    applyFilters(m_contentView, m_cachedFtsResults, true);
}

void FileSearchPage::openSettings()
{
    if (!SearchPathResolver::isAvailable(m_paths)) {
        AppNoticeDialog::showWarning(this, tr("无法打开索引设置"), m_paths.errorMessage);
        return;
    }
    // On the heap, since the page may go with its window while the dialog is open.
    const QPointer<IndexSettingsDialog> dialog = new IndexSettingsDialog(m_mode, m_paths, this);
    dialog->setSettings(shownSettings(m_paths, m_settings));
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return;
    if (accepted)
        takeSettings(storedSettings(m_paths, dialog->settings()));
    dialog->deleteLater();
}

void FileSearchPage::takeSettings(const SearchSettings &chosen)
{
    m_settings = chosen;
    QString error;
    const bool saved = searchsettings::save(m_paths, m_settings, &error);
    // A running build has the watcher stopped; it starts again with these settings at the end.
    if (!m_building)
        restartFollowing();
    if (saved)
        m_header->setOutcome(tr("索引设置已更新"), false);
    else
        m_header->setOutcome(tr("索引设置已生效，但未能保存：%1").arg(error), true);
}
