#include "ui/pages/diskanalyzerpage.h"

#include "analyzer/diskanalyzerworker.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/longwork.h"
#include "ui/common/styletemplate.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/diskanalyzerpage/deletionflow.h"
#include "ui/pages/diskanalyzerpage/directorylister.h"
#include "ui/pages/diskanalyzerpage/directorytab.h"
#include "ui/pages/diskanalyzerpage/duplicatetab.h"
#include "ui/pages/diskanalyzerpage/largefilestab.h"
#include "ui/pages/diskanalyzerpage/partitionstrip.h"
#include "ui/pages/diskanalyzerpage/pooltask.h"
#include "ui/pages/diskanalyzerpage/scanbar.h"
#include "ui/pages/diskanalyzerpage/scanengine.h"
#include "ui/pages/diskanalyzerpage/vaultwatch.h"

#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QProcess>
#include <QPushButton>
#include <QShowEvent>
#include <QTabWidget>

using namespace diskanalyzer;
using ui::common::AppNoticeDialog;
using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace {

constexpr ushort kRefreshGlyph = 0xF021;
constexpr int kGlyphSize = 16;

/// What the worker says of a scan that was stopped.
QString stopMessage()
{
    return QStringLiteral("用户取消");
}

QString pageSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QLabel#PartitionTitle, QLabel#PartitionShare, QLabel#DirPathLabel { font-weight: 600; }
QFrame#PartitionCard:focus { border-color: @accentHover@; }
QFrame#PartitionCard[selected="true"]:focus { border-color: @textPrimary@; }
/* Room for the sort arrow, which right-aligned titles would run into. */
QTableView#LargeFileTable QHeaderView::section { padding-right: 24px; }
QSplitter#DirSplitter::handle, QSplitter#DirSideSplitter::handle { background: transparent; }
)qss"));
}

} // namespace

DiskAnalyzerPage::DiskAnalyzerPage(VaultController *controller, QWidget *parent)
    : QWidget(parent)
    , m_partitionProvider(&diskanalyzer::readPartitions)
    , m_openDirectory([](const QString &directory) {
        QProcess::startDetached(QStringLiteral("xdg-open"), {directory});
    })
    , m_strip(new PartitionStrip(this))
    , m_bar(new ScanBar(this))
    , m_tabs(new QTabWidget(this))
    , m_largeFiles(new LargeFilesTab(m_tabs))
    , m_directories(new DirectoryTab(m_tabs))
    , m_duplicates(new DuplicateTab(m_tabs))
    , m_lister(new DirectoryLister(this))
    , m_vault(new VaultWatch(this))
    , m_deletion(new DeletionFlow(m_vault, this))
    , m_engine(new ScanEngine(this))
    , m_work(new ui::common::LongWork(tr("空间分析"), this))
{
    setObjectName(QStringLiteral("DiskAnalyzerPage"));
    setStyleSheet(pageSheet());
    buildTabs();
    arrange();
    wireScan();
    wireResults();
    m_bar->setStatus(tr("选择一个分区，然后开始扫描"));
    const QString title = tr("尚未扫描");
    const QString hint = tr("选择一个分区，点击开始扫描。");
    m_largeFiles->clear(EmptyState::Tone::Plain, title, hint);
    m_directories->clear(EmptyState::Tone::Plain, title, hint);
    m_duplicates->clear(EmptyState::Tone::Plain, title, hint);
    setVaultController(controller);
}

DiskAnalyzerPage::~DiskAnalyzerPage() = default;

void DiskAnalyzerPage::arrange()
{
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kPageMargin, metrics::kCardGap, metrics::kPageMargin,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildHeader());
    column->addWidget(m_strip);
    column->addWidget(m_bar);
    column->addWidget(m_tabs, 1);
}

QHBoxLayout *DiskAnalyzerPage::buildHeader()
{
    auto *title = new QLabel(tr("空间分析"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    auto *refresh = new QPushButton(this);
    refresh->setObjectName(QStringLiteral("AnalyzerRefreshButton"));
    ui::common::setButtonRole(refresh, QStringLiteral("icon"));
    refresh->setIcon(QIcon(IconWidget::makeFontAwesomePixmap(
        QChar(kRefreshGlyph), ThemeColors::current().textPrimary, kGlyphSize)));
    refresh->setToolTip(tr("重新读取分区"));
    refresh->setAccessibleName(tr("重新读取分区"));
    ui::common::setKeyRole(refresh, ui::common::KeyRole::Refresh);
    connect(refresh, &QPushButton::clicked, this, [this] {
        m_strip->setBusy();
        readPartitions();
    });
    auto *row = new QHBoxLayout;
    row->addWidget(title);
    row->addStretch(1);
    row->addWidget(refresh);
    return row;
}

void DiskAnalyzerPage::buildTabs()
{
    m_tabs->setObjectName(QStringLiteral("AnalyzerTabs"));
    m_tabs->addTab(m_largeFiles, tr("大文件排行"));
    m_tabs->addTab(m_directories, tr("目录空间占用"));
    m_tabs->addTab(m_duplicates, tr("重复文件"));
}

void DiskAnalyzerPage::wireScan()
{
    const DiskAnalyzerWorker *worker = m_engine->worker();
    connect(worker, &DiskAnalyzerWorker::progressChanged, this,
            &DiskAnalyzerPage::onProgressChanged);
    connect(worker, &DiskAnalyzerWorker::scanFinished, this, &DiskAnalyzerPage::onScanFinished);
    connect(worker, &DiskAnalyzerWorker::largeFilesReady, this,
            &DiskAnalyzerPage::onLargeFilesReady);
    connect(worker, &DiskAnalyzerWorker::duplicateGroupsReady, this,
            &DiskAnalyzerPage::onDuplicateGroupsReady);
    connect(worker, &DiskAnalyzerWorker::directoryTreeReady, this,
            &DiskAnalyzerPage::onDirectoryTreeReady);
    connect(m_strip, &PartitionStrip::cardClicked, this, &DiskAnalyzerPage::onPartitionCardClicked);
    connect(m_bar, &ScanBar::startClicked, this, &DiskAnalyzerPage::startScan);
    connect(m_bar, &ScanBar::stopClicked, this, &DiskAnalyzerPage::stopScan);
    connect(m_bar, &ScanBar::settingsClicked, this, &DiskAnalyzerPage::openSettings);
}

void DiskAnalyzerPage::wireResults()
{
    connect(m_directories, &DirectoryTab::directoryChosen, this,
            &DiskAnalyzerPage::onDirTreeItemClicked);
    connect(m_lister, &DirectoryLister::listed, this, &DiskAnalyzerPage::populateDirFileTable);
    connect(m_largeFiles, &LargeFilesTab::openDirRequested, this,
            &DiskAnalyzerPage::openContainingDir);
    connect(m_duplicates, &DuplicateTab::openDirRequested, this,
            &DiskAnalyzerPage::openContainingDir);
    connect(m_largeFiles, &LargeFilesTab::deleteRequested, m_deletion,
            &DeletionFlow::deleteLargeFiles);
    connect(m_duplicates, &DuplicateTab::cleanGroupRequested, m_deletion,
            &DeletionFlow::cleanGroup);
    connect(m_duplicates, &DuplicateTab::cleanAllRequested, m_deletion, &DeletionFlow::cleanAll);
    connect(m_deletion, &DeletionFlow::runningChanged, m_largeFiles, &LargeFilesTab::setDeleting);
    connect(m_deletion, &DeletionFlow::runningChanged, m_duplicates, &DuplicateTab::setDeleting);
    connect(m_deletion, &DeletionFlow::removed, this, &DiskAnalyzerPage::dropRemoved);
}

void DiskAnalyzerPage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (event->spontaneous())
        return;
    // What is used and what is protected changes while one is elsewhere.
    readPartitions();
    m_vault->refresh();
}

void DiskAnalyzerPage::setPartitionProvider(const PartitionProvider &provider)
{
    m_partitionProvider = provider;
    readPartitions();
}

void DiskAnalyzerPage::setScanSettings(const AnalyzerSettingsDialog::Settings &settings)
{
    m_settings = settings;
}

void DiskAnalyzerPage::readPartitions()
{
    const int number = ++m_partitionRead;
    runInPool(this, m_partitionProvider, [this, number](const QVector<PartitionInfo> &volumes) {
        if (number == m_partitionRead)
            buildPartitionCards(volumes);
    });
}

void DiskAnalyzerPage::buildPartitionCards(const QVector<PartitionInfo> &volumes)
{
    m_partitions = partitionCards(volumes);
    m_strip->setPartitions(m_partitions);
    int selected = -1;
    for (int i = 0; i < m_partitions.size(); ++i) {
        if (m_partitions.at(i).mountPath == m_selectedPath)
            selected = i;
    }
    if (selected < 0)
        m_selectedPath.clear();
    if (m_partitions.size() == 1 && selected < 0 && !isScanning())
        selectPartition(0); // There is nothing to choose.
    else
        m_strip->setSelected(selected);
}

void DiskAnalyzerPage::onPartitionCardClicked(int index)
{
    if (index >= 0 && index < m_partitions.size() && !isScanning())
        selectPartition(index);
}

void DiskAnalyzerPage::selectPartition(int index)
{
    m_selectedPath = m_partitions.at(index).mountPath;
    m_strip->setSelected(index);
    m_bar->setStatus(tr("已选择 %1，点击开始扫描").arg(partitionTitle(m_partitions.at(index))));
}

void DiskAnalyzerPage::openSettings()
{
    AnalyzerSettingsDialog dialog(m_settings, this);
    bool wanted = false;
    AnalyzerSettingsDialog::Settings chosen;
    connect(&dialog, &AnalyzerSettingsDialog::startScanRequested, &dialog,
            [&wanted, &chosen](const AnalyzerSettingsDialog::Settings &settings) {
                wanted = true;
                chosen = settings;
            });
    const QPointer<DiskAnalyzerPage> self(this);
    dialog.exec();
    if (!self || !wanted)
        return;
    m_settings = chosen;
    startScan();
}

void DiskAnalyzerPage::startScan()
{
    if (m_selectedPath.isEmpty()) {
        AppNoticeDialog::showInfo(this, tr("提示"), tr("请先选择一个分区"));
        return;
    }
    scanPath(m_selectedPath);
}

void DiskAnalyzerPage::scanPath(const QString &path)
{
    if (isScanning())
        return;
    ++m_scanNumber;
    m_scanRoot = path;
    m_deletion->setScanRoot(path);
    clearTabs();
    m_bar->setPercent(0);
    m_bar->setStatus(tr("正在扫描：0%"));
    m_work->start();
    setScan(Scan::Running);
    m_engine->start(path, m_settings);
}

void DiskAnalyzerPage::stopScan()
{
    if (m_scan != Scan::Running)
        return;
    setScan(Scan::Stopping);
    m_bar->setStatus(tr("正在停止..."));
    m_engine->stop();
}

void DiskAnalyzerPage::setScan(Scan scan)
{
    m_scan = scan;
    switch (scan) {
    case Scan::None:
        m_bar->setState(ScanBar::State::Idle);
        break;
    case Scan::Running:
        m_bar->setState(ScanBar::State::Running);
        break;
    case Scan::Stopping:
        m_bar->setState(ScanBar::State::Stopping);
        break;
    }
}

void DiskAnalyzerPage::clearTabs()
{
    m_lister->cancel();
    m_hasLargeFiles = false;
    m_hasTree = false;
    m_hasDuplicates = false;
    const QString title = tr("正在扫描...");
    m_largeFiles->clear(EmptyState::Tone::Busy, title, tr("扫描完所有文件后列出最大的文件。"));
    m_directories->clear(EmptyState::Tone::Busy, title, tr("扫描完所有文件后显示各目录的大小。"));
    m_duplicates->clear(EmptyState::Tone::Busy, title, tr("重复文件在最后一步中查找。"));
}

void DiskAnalyzerPage::onProgressChanged(int percent, const QString &statusText)
{
    // A late report must not overwrite that the scan is being stopped, or how it ended.
    if (m_scan != Scan::Running)
        return;
    m_bar->setPercent(percent);
    m_work->setFraction(percent / 100.0);
    const QString timeLeft = m_work->timeLeft();
    m_bar->setStatus(timeLeft.isEmpty() ? statusText
                                        : QStringLiteral("%1 · %2").arg(statusText, timeLeft));
}

void DiskAnalyzerPage::onScanFinished(bool success, const QString &message, int largeFileCount,
                                      int dupGroupCount)
{
    Q_UNUSED(largeFileCount)
    Q_UNUSED(dupGroupCount)
    const bool stopped = !success && (m_scan == Scan::Stopping || message == stopMessage());
    setScan(Scan::None);
    m_work->finish(stopped ? QString() : message);
    m_bar->setStatus(message);
    endTabs(success, stopped, message);
    if (!success && !stopped)
        AppNoticeDialog::showWarning(this, tr("扫描"), message);
}

void DiskAnalyzerPage::endTabs(bool success, bool stopped, const QString &message)
{
    if (success)
        return;
    const EmptyState::Tone tone = stopped ? EmptyState::Tone::Plain : EmptyState::Tone::Error;
    const QString title = stopped ? tr("扫描已停止") : tr("扫描失败");
    const QString hint = stopped ? tr("点击开始扫描可以重新开始。") : message;
    if (!m_hasLargeFiles)
        m_largeFiles->clear(tone, title, hint);
    if (!m_hasTree)
        m_directories->clear(tone, title, hint);
    if (!m_hasDuplicates)
        m_duplicates->clear(tone, title, hint);
}

void DiskAnalyzerPage::onLargeFilesReady(const QVariantList &files)
{
    m_hasLargeFiles = true;
    runInPool(
        this, [files] { return largeFilesFromList(files); },
        [this, number = m_scanNumber](const QVector<LargeFile> &parsed) {
            if (number == m_scanNumber)
                m_largeFiles->setFiles(parsed);
        });
}

void DiskAnalyzerPage::onDuplicateGroupsReady(const QVariantList &groups)
{
    m_hasDuplicates = true;
    runInPool(
        this, [groups] { return duplicateResultFromList(groups); },
        [this, number = m_scanNumber,
         searched = m_settings.findDuplicates](const DuplicateResult &result) {
            if (number == m_scanNumber)
                m_duplicates->setResult(result, searched);
        });
}

void DiskAnalyzerPage::onDirectoryTreeReady(const QVariantMap &rootNode)
{
    m_hasTree = true;
    runInPool(
        this, [rootNode, root = m_scanRoot] { return directoryTreeFromMap(rootNode, root); },
        [this, number = m_scanNumber](const DirectoryTree &tree) {
            if (number == m_scanNumber)
                m_directories->populateDirectoryTree(tree);
        });
}

void DiskAnalyzerPage::onDirTreeItemClicked(const QModelIndex &index)
{
    const QString path = m_directories->pathOfIndex(index);
    if (path.isEmpty())
        return;
    m_directories->showFilesBusy();
    m_lister->list(path);
}

void DiskAnalyzerPage::populateDirFileTable(const QVariantList &files)
{
    m_directories->showFiles(files);
}

void DiskAnalyzerPage::setVaultController(VaultController *controller)
{
    m_vault->setController(controller);
}

void DiskAnalyzerPage::dropRemoved(const QVector<ScannedFile> &files)
{
    QSet<QString> paths;
    for (const ScannedFile &file : files)
        paths.insert(file.path);
    m_directories->removeFiles(files);
    m_largeFiles->removePaths(paths);
    m_duplicates->removePaths(paths);
    readPartitions();
}

void DiskAnalyzerPage::openContainingDir(const QString &filePath)
{
    m_openDirectory(QFileInfo(filePath).absolutePath());
}
