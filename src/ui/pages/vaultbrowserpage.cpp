#include "ui/pages/vaultbrowserpage.h"

#include "core/controllers/recoverycontroller.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/emptystate.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/protectedfiletree.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/vaultbrowserpage/vaultloader.h"

#include <QComboBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
#include <QTimer>

#include <algorithm>

using core::AppMode;
using core::controllers::RecoveryController;
using protectedfiles::byteText;
using protectedfiles::ProtectedFile;
using ui::common::AppNoticeDialog;
using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::ProtectedFileTree;
using ui::common::ThemeColors;
using ui::common::WrapLabel;
using vault::VaultLocation;
using vaultbrowser::VaultLoader;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kSearchDelayMs = 200;
constexpr int kSearchWidth = 240; ///< Base pixels.
constexpr int kBarWidth = 160;
constexpr int kIconSize = 14; ///< Base pixels.
constexpr ushort kRefreshGlyph = 0xF021;

QFrame *card(const char *name, QWidget *parent)
{
    auto *frame = new QFrame(parent);
    frame->setObjectName(QLatin1String(name));
    frame->setProperty("card", true);
    return frame;
}

void setMargins(QLayout *layout)
{
    layout->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    layout->setSpacing(metrics::kFieldGap);
}

} // namespace

VaultBrowserPage::VaultBrowserPage(AppMode mode, RecoveryController *recovery, QWidget *parent)
    : QWidget(parent)
    , m_mode(mode)
    , m_recovery(recovery)
    , m_chooseDirectory([](QWidget *owner, const QString &title) {
        return QFileDialog::getExistingDirectory(owner, title);
    })
    , m_loader(new VaultLoader(this))
    , m_searchTimer(new QTimer(this))
{
    setObjectName(QStringLiteral("VaultBrowserPage"));
    auto *title = new QLabel(tr("受保护文件"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    auto *line = new WrapLabel(tr("浏览并恢复原系统分区中的受保护文件"), this);
    line->setObjectName(QStringLiteral("SubtleText"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(line);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    layout->setSpacing(metrics::kCardGap);
    layout->addLayout(texts);
    layout->addWidget(buildHeader());
    layout->addWidget(buildActions());
    layout->addWidget(buildFileList(), 1);

    connect(m_loader, &VaultLoader::found, this, [this](const QVector<VaultLocation> &locations) {
        applyVaultLocations(locations, true, QString());
    });
    connect(m_loader, &VaultLoader::loaded, this, &VaultBrowserPage::onFilesLoaded);
    wireController();
    showTreeState();
}

QFrame *VaultBrowserPage::buildHeader()
{
    QFrame *frame = card("vaultHeaderFrame", this);
    auto *caption = new QLabel(tr("选择分区："), frame);
    m_partitions = new QComboBox(frame);
    m_partitions->setObjectName(QStringLiteral("VaultPartitionCombo"));
    // Long paths must not widen the window.
    m_partitions->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    m_partitions->setMinimumContentsLength(20);
    caption->setBuddy(m_partitions);
    connect(m_partitions, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &VaultBrowserPage::onPartitionChanged);
    m_refresh = new QPushButton(tr("刷新"), frame);
    ui::common::setKeyRole(m_refresh, ui::common::KeyRole::Refresh);
    m_refresh->setObjectName(QStringLiteral("VaultRefreshButton"));
    const int iconSize = ThemeColors::current().fontPx(kIconSize);
    m_refresh->setIcon(QIcon(IconWidget::makeFontAwesomePixmap(
        QString(QChar(kRefreshGlyph)), ThemeColors::current().textPrimary, iconSize)));
    m_refresh->setIconSize(QSize(iconSize, iconSize));
    connect(m_refresh, &QPushButton::clicked, this, &VaultBrowserPage::refresh);
    m_status = new WrapLabel(tr("正在扫描分区..."), frame);
    m_status->setObjectName(QStringLiteral("VaultStatusLabel"));
    m_status->setProperty("textRole", QStringLiteral("subtle"));

    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(caption);
    row->addWidget(m_partitions, 1);
    row->addWidget(m_refresh);
    auto *column = new QVBoxLayout(frame);
    setMargins(column);
    column->addLayout(row);
    column->addWidget(m_status);
    return frame;
}

QFrame *VaultBrowserPage::buildActions()
{
    QFrame *frame = card("vaultActionFrame", this);
    m_restoreSelected = new QPushButton(tr("恢复选中"), frame);
    m_restoreSelected->setObjectName(QStringLiteral("VaultRestoreSelectedButton"));
    ui::common::setButtonRole(m_restoreSelected, QStringLiteral("primary"));
    connect(m_restoreSelected, &QPushButton::clicked, this, &VaultBrowserPage::restoreSelected);
    m_restoreAll = new QPushButton(tr("恢复全部"), frame);
    m_restoreAll->setObjectName(QStringLiteral("VaultRestoreAllButton"));
    connect(m_restoreAll, &QPushButton::clicked, this, &VaultBrowserPage::restoreAll);
    m_checked = new QLabel(frame);
    m_checked->setObjectName(QStringLiteral("VaultCheckedLabel"));
    m_checked->setProperty("textRole", QStringLiteral("subtle"));
    m_restoreLabel = new WrapLabel(frame);
    m_restoreLabel->setObjectName(QStringLiteral("VaultRestoreLabel"));
    m_restoreBar = new QProgressBar(frame);
    m_restoreBar->setObjectName(QStringLiteral("VaultRestoreBar"));
    m_restoreBar->setTextVisible(false);
    m_restoreBar->setFixedWidth(kBarWidth);
    m_restoreBar->hide();

    auto *row = new QHBoxLayout(frame);
    setMargins(row);
    row->addWidget(m_restoreSelected);
    row->addWidget(m_restoreAll);
    row->addWidget(m_checked);
    row->addWidget(m_restoreBar);
    row->addWidget(m_restoreLabel, 1);
    return frame;
}

QFrame *VaultBrowserPage::buildFileList()
{
    QFrame *frame = card("vaultFileListFrame", this);
    m_heading = new QLabel(tr("受保护文件列表"), frame);
    m_heading->setObjectName(QStringLiteral("VaultListHeading"));
    m_heading->setProperty("textRole", QStringLiteral("section"));
    m_search = new QLineEdit(frame);
    ui::common::setKeyRole(m_search, ui::common::KeyRole::Search);
    m_search->setObjectName(QStringLiteral("VaultSearchEdit"));
    m_search->setPlaceholderText(tr("搜索文件..."));
    m_search->setClearButtonEnabled(true);
    m_search->setFixedWidth(ThemeColors::current().fontPx(kSearchWidth));
    // A long list takes a moment to fill; not at every key.
    m_searchTimer->setSingleShot(true);
    m_searchTimer->setInterval(kSearchDelayMs);
    connect(m_search, &QLineEdit::textChanged, m_searchTimer, QOverload<>::of(&QTimer::start));
    connect(m_searchTimer, &QTimer::timeout, this, &VaultBrowserPage::populateTree);
    m_tree = new ProtectedFileTree(tr("保护时间"), frame);
    m_tree->setObjectName(QStringLiteral("VaultFileTree"));
    connect(m_tree, &ProtectedFileTree::checkedCountChanged, this, [this](int count) {
        m_checkedCount = count;
        m_checked->setText(count > 0 ? tr("已勾选 %1 个").arg(count) : QString());
        updateButtons();
    });
    connect(m_tree->emptyState(), &EmptyState::actionTriggered, this, [this] {
        if (m_files.isEmpty())
            refresh();
        else
            m_search->clear();
    });

    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(m_heading, 1);
    row->addWidget(m_search);
    auto *column = new QVBoxLayout(frame);
    setMargins(column);
    column->addLayout(row);
    column->addWidget(m_tree, 1);
    return frame;
}

void VaultBrowserPage::wireController()
{
    if (!m_recovery)
        return;
    RecoveryController *source = m_recovery;
    if (m_mode == AppMode::livecd)
        connect(source, &RecoveryController::vaultLocationsReceived, this,
                &VaultBrowserPage::onVaultLocationsReceived);
    connect(source, &RecoveryController::vaultRestoreStarted, this,
            &VaultBrowserPage::onVaultRestoreStarted);
    connect(source, &RecoveryController::vaultRestoreError, this,
            &VaultBrowserPage::onVaultRestoreError);
    connect(source, &RecoveryController::vaultFileRestored, this,
            &VaultBrowserPage::onVaultFileRestored);
    connect(source, &RecoveryController::vaultRestoreCompleted, this,
            &VaultBrowserPage::onVaultRestoreCompleted);
}

void VaultBrowserPage::later(const std::function<void()> &show)
{
    // The slots run while the link reads, and no more is read while a dialog is open inside them.
    QTimer::singleShot(0, this, show);
}

void VaultBrowserPage::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_needsRefresh && !event->spontaneous())
        later([this] { refresh(); });
}

void VaultBrowserPage::refresh()
{
    m_needsRefresh = m_isListing;
    if (m_isListing)
        return;
    if (m_mode != AppMode::livecd) {
        setListing(true, tr("正在扫描受保护文件..."));
        scanPartitions();
    } else if (!m_recovery) {
        m_listError = tr("恢复服务不可用，无法读取受保护文件。");
        setListing(false, m_listError);
    } else {
        setListing(true, tr("正在扫描目标系统中的受保护文件..."));
        m_recovery->fetchVaultLocations();
    }
}

void VaultBrowserPage::setListing(bool listing, const QString &status)
{
    m_isListing = listing;
    m_status->setText(status);
    showTreeState();
}

void VaultBrowserPage::scanPartitions()
{
    m_loader->find(m_mountsFile);
}

void VaultBrowserPage::onServiceConnected()
{
    // Reading a damaged disk is hard on it, so only for someone who looks.
    m_needsRefresh = true;
    if (isVisible())
        refresh();
}

void VaultBrowserPage::onServiceLost()
{
    if (!m_restore.isBusy())
        return;
    m_restore.abandon();
    showRestore(
        tr("与恢复服务的连接已断开，未收到恢复结果。请查看目标目录，连接恢复后可以重新恢复。"),
        true);
}

void VaultBrowserPage::onVaultLocationsReceived(const QJsonArray &locations, bool ok,
                                                const QString &error)
{
    QVector<VaultLocation> found;
    for (const QJsonValue &location : locations)
        if (location.isObject())
            found.append(VaultLocation::fromJson(location.toObject()));
    applyVaultLocations(found, ok, error);
}

void VaultBrowserPage::applyVaultLocations(const QVector<VaultLocation> &locations, bool ok,
                                           const QString &error)
{
    m_locations = locations;
    m_listError = error;
    const ThemeColors &colors = ThemeColors::current();
    int chosen = locations.isEmpty() ? -1 : 0;
    {
        const QSignalBlocker blocker(m_partitions);
        m_partitions->clear();
        for (int i = 0; i < locations.size(); ++i) {
            const VaultLocation &location = locations.at(i);
            const bool isEmpty = m_mode == AppMode::livecd && location.files.isEmpty();
            m_partitions->addItem(vaultbrowser::locationText(location));
            m_partitions->setItemData(i, isEmpty ? colors.textMuted : colors.textPrimary,
                                      Qt::ForegroundRole);
            if (location.vaultParentDir == m_chosenDir)
                chosen = i;
        }
        if (locations.isEmpty()) {
            m_partitions->addItem(tr("未检测到受保护文件"));
            m_partitions->setItemData(0, colors.textMuted, Qt::ForegroundRole);
        }
        m_partitions->setCurrentIndex(qMax(0, chosen));
    }
    m_partitions->setEnabled(!locations.isEmpty());
    setListing(false, locations.isEmpty() ? vaultbrowser::nothingFoundText(m_mode, ok)
                                          : tr("发现 %1 个受保护文件目录").arg(locations.size()));
    onPartitionChanged();
    // Asked for while this list was on its way.
    if (m_needsRefresh && isVisible())
        refresh();
}

void VaultBrowserPage::onPartitionChanged()
{
    const int index = m_partitions->currentIndex();
    m_isLoading = false;
    if (index < 0 || index >= m_locations.size()) {
        setFiles(QJsonArray());
        return;
    }
    const VaultLocation &location = m_locations.at(index);
    m_chosenDir = location.vaultParentDir;
    m_partitions->setToolTip(m_partitions->currentText().toHtmlEscaped());
    if (m_mode == AppMode::livecd) {
        setFiles(location.files);
        return;
    }
    m_isLoading = true;
    setFiles(QJsonArray());
    m_loader->load(location.vaultParentDir);
}

void VaultBrowserPage::onFilesLoaded(const QString &vaultParentDir, const QJsonArray &files)
{
    // Another one is chosen by now, or none is left.
    if (!m_isLoading || vaultParentDir != m_chosenDir)
        return;
    m_isLoading = false;
    setFiles(files);
}

void VaultBrowserPage::setFiles(const QJsonArray &files)
{
    m_files = protectedfiles::fromJson(files);
    populateTree();
}

void VaultBrowserPage::populateTree()
{
    m_searchTimer->stop();
    const QVector<ProtectedFile> shown =
        vaultbrowser::matching(m_files, m_search->text().trimmed());
    m_tree->populate(shown);
    updateButtons();
    m_heading->setText(tr("受保护文件列表（%1 个文件）").arg(shown.size()));
    showTreeState();
}

void VaultBrowserPage::updateButtons()
{
    const QString busy = m_restore.isBusy() ? tr("正在恢复，请等待完成") : QString();
    ui::common::setUsable(m_restoreSelected, busy.isEmpty() && m_checkedCount == 0
                                                 ? tr("请先勾选需要恢复的文件。")
                                                 : busy);
    ui::common::setUsable(
        m_restoreAll, busy.isEmpty() && m_files.isEmpty() ? tr("当前分区没有受保护文件。") : busy);
}

void VaultBrowserPage::showTreeState()
{
    EmptyState *state = m_tree->emptyState();
    state->setTone(EmptyState::Tone::Plain);
    state->setActionText(QString());
    if (!m_files.isEmpty()) {
        state->setTexts(tr("没有匹配的文件"), tr("换一个关键字，或清除搜索文字。"));
        state->setActionText(tr("清除搜索"));
    } else if (m_isListing || m_isLoading) {
        state->setTone(EmptyState::Tone::Busy);
        state->setTexts(tr("正在读取受保护文件..."), QString());
    } else if (!m_listError.isEmpty()) {
        state->setTone(EmptyState::Tone::Error);
        state->setTexts(tr("无法读取受保护文件"), m_listError);
        state->setActionText(tr("重新读取"));
    } else if (m_locations.isEmpty()) {
        state->setTexts(tr("未检测到受保护文件"), tr("连接或挂载原系统的磁盘后重新扫描。"));
        state->setActionText(tr("重新扫描"));
    } else {
        state->setTexts(tr("这个保护区中没有文件"), tr("可以在上方选择其他分区。"));
    }
}

void VaultBrowserPage::restoreSelected()
{
    const QStringList ids = m_tree->checkedIds();
    if (ids.isEmpty()) {
        AppNoticeDialog::showInfo(this, tr("提示"), tr("请先勾选需要恢复的文件。"));
        return;
    }
    restore(ids, tr("正在恢复 %1 个文件...").arg(ids.size()));
}

void VaultBrowserPage::restoreAll()
{
    QStringList ids;
    for (const ProtectedFile &file : qAsConst(m_files))
        if (!file.id.isEmpty())
            ids.append(file.id);
    if (ids.isEmpty()) {
        AppNoticeDialog::showInfo(this, tr("提示"), tr("当前分区没有受保护文件。"));
        return;
    }
    restore(ids, tr("正在恢复全部 %1 个文件...").arg(ids.size()));
}

void VaultBrowserPage::restore(const QStringList &fileIds, const QString &doingText)
{
    // While the dialog is open the list may change.
    const QString vaultParentDir = m_chosenDir;
    const QPointer<VaultBrowserPage> self(this);
    const QString targetDir = m_chooseDirectory(this, tr("选择恢复目标目录"));
    if (!self || targetDir.isEmpty() || m_restore.isBusy())
        return;
    if (!m_recovery) {
        onVaultRestoreError(tr("恢复服务不可用，无法恢复受保护文件。"));
        return;
    }
    m_restore.begin(fileIds.size());
    m_lastRestoreError.clear();
    showRestore(doingText);
    m_recovery->restoreVaultFiles(vaultParentDir, fileIds, targetDir, QStringLiteral("rename"));
}

void VaultBrowserPage::showRestore(const QString &text, bool isError)
{
    const bool isBusy = m_restore.isBusy();
    updateButtons();
    m_restoreBar->setVisible(isBusy);
    m_restoreBar->setRange(0, m_restore.isStarting() ? 0 : m_restore.total());
    m_restoreBar->setValue(m_restore.done());
    ui::common::setStyleProperty(m_restoreLabel, "tone",
                                 isError ? QStringLiteral("error") : QString());
    m_restoreLabel->setText(text);
}

void VaultBrowserPage::onVaultRestoreStarted(const QString &taskId)
{
    if (m_restore.start(taskId))
        showRestore(m_restoreLabel->text());
}

void VaultBrowserPage::onVaultRestoreError(const QString &message)
{
    if (m_recovery && !m_restore.isStarting())
        return;
    m_restore.abandon();
    showRestore(tr("恢复失败：%1").arg(message), true);
    later([this, message] { AppNoticeDialog::showError(this, tr("恢复失败"), message); });
}

void VaultBrowserPage::onVaultFileRestored(const QString &taskId, const QString &,
                                           const QString &originalPath, const QString &status,
                                           const QString &error)
{
    if (!m_restore.countFile(taskId, status))
        return;
    if (status == QLatin1String("failed") && m_lastRestoreError.isEmpty())
        m_lastRestoreError = originalPath.isEmpty() ? error : originalPath + tr("：") + error;
    showRestore(m_restore.progressText());
}

void VaultBrowserPage::onVaultRestoreCompleted(const QString &taskId, int total, int succeeded,
                                               int failed, int skipped, qint64 totalBytes)
{
    if (!m_restore.finish(taskId))
        return;
    const QString bytes = byteText(totalBytes);
    showRestore(tr("恢复完成：共 %1 个文件，成功 %2，失败 %3，跳过 %4，数据量 %5")
                    .arg(total)
                    .arg(succeeded)
                    .arg(failed)
                    .arg(skipped)
                    .arg(bytes));
    const QString title = tr("恢复完成");
    const QString detail = m_lastRestoreError;
    later([this, title, succeeded, failed, bytes, detail] {
        if (failed > 0)
            AppNoticeDialog::showWarning(
                this, title, tr("恢复完成，但有 %1 个文件恢复失败。").arg(failed), detail);
        else
            AppNoticeDialog::showSuccess(
                this, title, tr("成功恢复 %1 个文件，共 %2。").arg(succeeded).arg(bytes));
    });
}
