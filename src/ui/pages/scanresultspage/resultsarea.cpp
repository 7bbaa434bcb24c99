#include "ui/pages/scanresultspage/resultsarea.h"

#include "ui/common/iconwidget.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/styletemplate.h"
#include "ui/common/theme.h"
#include "ui/common/utils/filetypecategoryutils.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/scanresultspage/columnchooser.h"
#include "ui/pages/scanresultspage/quickfilters.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"
#include "ui/pages/scanresultspage/scanresultstable.h"
#include "ui/pages/scanresultspage/scantreewidget.h"
#include "ui/pages/scanresultspage/selectallheaderview.h"

#include <QActionGroup>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QMenu>
#include <QPushButton>
#include <QResizeEvent>
#include <QSplitter>
#include <QVBoxLayout>

using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::ThemeColors;
using ui::common::utils::FileTypeCategoryUtils;
namespace metrics = ui::common::metrics;

namespace scanresults {

namespace {

constexpr int kTreeWidth = 200;
constexpr int kBothFit = 1210; ///< Width for the tree and all columns of the table.
constexpr int kSearchWidth = 260;
constexpr int kInputIcon = 16;

const QString &allKey()
{
    static const QString kAll = QStringLiteral("all");
    return kAll;
}

QString areaSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QSplitter#ScanResultsSplitter::handle { background: transparent; }
QPushButton#SourceFilterButton, QPushButton#TimeFilterButton { padding: 0px 36px 0px 16px; }
QPushButton#SourceFilterButton::menu-indicator, QPushButton#TimeFilterButton::menu-indicator { image: url(:/img/chevron-down.svg); width: 16px;
    height: 16px; subcontrol-origin: border; subcontrol-position: center right; right: 12px; }
)qss"));
}

} // namespace

ResultsArea::ResultsArea(ScanResultsModel *model, ScanTreeModel *directories, QWidget *parent)
    : QWidget(parent)
    , m_model(model)
    , m_directories(directories)
{
    m_splitter = new QSplitter(Qt::Horizontal, this);
    m_splitter->setObjectName(QStringLiteral("ScanResultsSplitter"));
    m_tree = new ScanTreeWidget(directories, m_splitter);
    m_splitter->addWidget(m_tree);
    m_tableArea = new QWidget(m_splitter);
    m_table = new ScanResultsTable(m_model, m_tableArea);
    auto *around = new QVBoxLayout(m_tableArea);
    around->setContentsMargins(0, 0, 0, 0);
    around->addWidget(m_table);
    m_splitter->addWidget(m_tableArea);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setHandleWidth(metrics::kCardGap);
    setStyleSheet(areaSheet());
    m_splitter->setCollapsible(1, false);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(metrics::kFieldGap);
    layout->addLayout(makeFilterBar());
    layout->addLayout(makeQuickBar());
    layout->addWidget(m_splitter, 1);
    makeSourceMenu();
    makeTypeMenu();
    wire();
    reset();
}

QHBoxLayout *ResultsArea::makeFilterBar()
{
    m_search = new QLineEdit(this);
    ui::common::setKeyRole(m_search, ui::common::KeyRole::Search);
    m_search->setObjectName(QStringLiteral("ScanSearchEdit"));
    m_search->setPlaceholderText(tr("按文件名过滤..."));
    m_search->setClearButtonEnabled(true);
    m_search->setMaximumWidth(ThemeColors::current().fontPx(kSearchWidth));
    m_search->addAction(QIcon(IconWidget::makePixmap(IconWidget::Search,
                                                     ThemeColors::current().textMuted, kInputIcon)),
                        QLineEdit::LeadingPosition);
    m_treeToggle = new QPushButton(this);
    m_treeToggle->setObjectName(QStringLiteral("TreeToggleButton"));
    ui::common::setButtonRole(m_treeToggle, QStringLiteral("quiet"));
    m_sourceButton = new QPushButton(tr("来源筛选"), this);
    m_sourceButton->setObjectName(QStringLiteral("SourceFilterButton"));
    m_clearFilters = new QPushButton(this);
    m_clearFilters->setObjectName(QStringLiteral("ClearFiltersButton"));
    ui::common::setButtonRole(m_clearFilters, QStringLiteral("quiet"));

    auto *bar = new QHBoxLayout;
    bar->setSpacing(metrics::kButtonGap);
    bar->addWidget(m_search, 1);
    bar->addWidget(m_sourceButton);
    bar->addWidget(m_treeToggle);
    bar->addWidget(m_clearFilters);
    bar->addStretch(1);
    return bar;
}

QHBoxLayout *ResultsArea::makeQuickBar()
{
    m_quick = new QuickFilters(this);
    m_count = new QLabel(this);
    m_count->setObjectName(QStringLiteral("ListCountLabel"));
    m_count->setProperty("textRole", QStringLiteral("subtle"));
    auto *bar = new QHBoxLayout;
    bar->setSpacing(metrics::kButtonGap);
    bar->addWidget(m_quick);
    bar->addStretch(1);
    bar->addWidget(m_count);
    return bar;
}

void ResultsArea::makeSourceMenu()
{
    auto *menu = new QMenu(m_sourceButton);
    menu->setObjectName(QStringLiteral("SourceFilterMenu"));
    const QString entries[][2] = {
        {allKey(), tr("全部来源")},
        {QStringLiteral("metadata"), tr("元数据")},
        {QStringLiteral("journal"), tr("日志恢复")},
        {QStringLiteral("carving"), tr("特征扫描")},
    };
    for (const auto &entry : entries) {
        const QString value = entry[0];
        const QString label = entry[1];
        connect(menu->addAction(label), &QAction::triggered, this,
                [this, value, label] { chooseSource(value, label); });
    }
    m_sourceButton->setMenu(menu);
}

void ResultsArea::makeTypeMenu()
{
    m_typeMenu = new QMenu(this);
    m_typeMenu->setObjectName(QStringLiteral("TypeFilterMenu"));
    auto *group = new QActionGroup(m_typeMenu);
    for (const QString &label : FileTypeCategoryUtils::categoryFilterLabels()) {
        QAction *action = m_typeMenu->addAction(label);
        action->setCheckable(true);
        action->setData(FileTypeCategoryUtils::categoryKeyFromLabel(label));
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, label] { chooseCategory(label); });
    }
    connect(m_typeMenu, &QMenu::aboutToShow, this, &ResultsArea::showTypeCounts);
    // A click on this section opens the menu, so the order by type is chosen here.
    m_typeMenu->addSeparator();
    connect(m_typeMenu->addAction(tr("按类型排序")), &QAction::triggered, this, [this] {
        const bool flip = m_model->sortColumn() == ScanResultsModel::TypeColumn &&
                          m_model->sortOrder() == Qt::AscendingOrder;
        m_table->header()->setSortIndicator(ScanResultsModel::TypeColumn,
                                            flip ? Qt::DescendingOrder : Qt::AscendingOrder);
    });
}

void ResultsArea::showTypeCounts()
{
    const QHash<QString, int> counts = m_model->categoryCounts();
    for (QAction *action : m_typeMenu->actions()) {
        const QString key = action->data().toString();
        if (key.isEmpty())
            continue;
        const int count = key == allKey() ? m_model->totalCount() : counts.value(key);
        // What follows a tab stands at the right edge of a menu.
        action->setText(FileTypeCategoryUtils::categoryLabelFromKey(key) + QLatin1Char('\t') +
                        QLocale().toString(count));
    }
}

void ResultsArea::wire()
{
    SelectAllHeaderView *header = m_table->header();
    connect(header, &SelectAllHeaderView::toggleAllRequested, this, &ResultsArea::toggleAll);
    connect(header, &SelectAllHeaderView::typeMenuRequested, m_typeMenu,
            [this](const QPoint &position) { m_typeMenu->popup(position); });
    connect(m_search, &QLineEdit::textChanged, this, &ResultsArea::applyTableFilters);
    connect(m_quick, &QuickFilters::changed, this, &ResultsArea::applyTableFilters);
    connect(m_treeToggle, &QPushButton::clicked, this, [this] {
        m_treeChosen = true;
        showTree(m_tree->isHidden());
    });
    connect(m_clearFilters, &QPushButton::clicked, this, &ResultsArea::clearFilters);
    connect(m_tree, &ScanTreeWidget::directoryChosen, this, &ResultsArea::filterByDirectory);
    connect(m_model, &ScanResultsModel::changeBegins, this, &ResultsArea::beginChange);
    connect(m_model, &ScanResultsModel::changeEnds, this, &ResultsArea::endChange);
    connect(m_model, &ScanResultsModel::arrangingChanged, this, &ResultsArea::showCounts);
    connect(m_model, &ScanResultsModel::checkedChanged, this,
            [this] { m_table->header()->setCheckState(m_model->visibleCheckState()); });
    connect(m_table, &ScanResultsTable::detailsRequested, this, &ResultsArea::detailsRequested);
    connect(m_table->emptyState(), &EmptyState::actionTriggered, this, [this] {
        if (m_model->totalCount() > 0)
            clearFilters();
        else
            emit emptyActionTriggered();
    });
}

void ResultsArea::reset()
{
    m_model->clear();
    m_table->resetPlace();
    clearFilters();
    m_count->setText(tr("列表显示了 %1 个文件").arg(0));
}

void ResultsArea::setComplete(bool isComplete)
{
    m_table->columns()->setComplete(isComplete);
}

void ResultsArea::beginChange(ScanResultsModel::Change change)
{
    m_tree->setUpdatesEnabled(false);
    if (change != ScanResultsModel::Change::Replaced)
        return;
    m_openPaths = m_tree->openPaths();
    m_directoryPath = m_directories->pathOf(m_directory);
}

void ResultsArea::endChange(ScanResultsModel::Change change)
{
    if (change == ScanResultsModel::Change::Replaced) {
        m_tree->openPathsAgain(m_openPaths);
        m_directory = m_directories->nodeOfPath(m_directoryPath);
        m_tree->selectNode(m_directory);
    }
    m_tree->setUpdatesEnabled(true);
    m_table->columns()->refresh();
    m_table->header()->setSortIndicator(m_model->sortColumn(), m_model->sortOrder());
    m_table->header()->setCheckState(m_model->visibleCheckState());
    showCounts();
    // Another directory may have been chosen while the files were on their way.
    if (m_directory != m_model->filter().directory)
        applyTableFilters();
}

void ResultsArea::chooseSource(const QString &value, const QString &label)
{
    m_source = value;
    m_sourceButton->setText(tr("来源: %1").arg(label));
    applyTableFilters();
}

void ResultsArea::chooseCategory(const QString &label)
{
    m_category = FileTypeCategoryUtils::categoryKeyFromLabel(label);
    m_table->header()->setTypeFilter(label, m_category != allKey());
    applyTableFilters();
}

void ResultsArea::filterByDirectory(int node)
{
    if (node == m_directory)
        return;
    m_directory = node;
    applyTableFilters();
}

void ResultsArea::clearFilters()
{
    m_holdFilters = true;
    m_search->clear();
    m_quick->reset();
    m_source = allKey();
    m_sourceButton->setText(tr("来源筛选"));
    m_typeMenu->actions().first()->setChecked(true);
    chooseCategory(FileTypeCategoryUtils::categoryLabelFromKey(allKey()));
    m_directory = ScanTreeModel::kRootNode;
    m_tree->selectNode(m_directory);
    m_holdFilters = false;
    applyTableFilters();
}

void ResultsArea::applyTableFilters()
{
    if (m_holdFilters)
        return;
    ResultFilter filter;
    filter.text = m_search->text();
    filter.category = m_category;
    filter.source = m_source;
    filter.directory = m_directory;
    filter.quick = m_quick->kind();
    filter.deletedSinceMs = m_quick->deletedSince(QDateTime::currentMSecsSinceEpoch());
    m_model->setFilter(filter);
}

void ResultsArea::showCounts()
{
    const int shown = m_model->visibleCount();
    const int total = m_model->totalCount();
    const QString count = tr("列表显示了 %1 个文件（共 %2 个）").arg(shown).arg(total);
    m_count->setText(m_model->isArranging() ? tr("正在整理… · %1").arg(count) : count);
    m_clearFilters->setText(tr("已隐藏 %1 个 · 清除筛选").arg(total - shown));
    m_clearFilters->setVisible(shown < total);
    showEmptyState();
}

void ResultsArea::setEmptyText(EmptyState::Tone tone, const QString &title, const QString &hint,
                               const QString &action)
{
    m_emptyTone = tone;
    m_emptyTitle = title;
    m_emptyHint = hint;
    m_emptyAction = action;
    showEmptyState();
}

void ResultsArea::showEmptyState()
{
    EmptyState *empty = m_table->emptyState();
    const int total = m_model->totalCount();
    if (total == 0) {
        empty->setIcon(IconWidget::File);
        empty->setTone(m_emptyTone);
        empty->setTexts(m_emptyTitle, m_emptyHint);
        empty->setActionText(m_emptyAction);
    } else if (m_model->visibleCount() == 0) {
        empty->setIcon(IconWidget::Filter);
        empty->setTone(EmptyState::Tone::Plain);
        empty->setTexts(tr("没有符合筛选条件的文件"),
                        tr("已发现 %1 个文件，都被筛选条件排除了。").arg(total));
        empty->setActionText(tr("清除筛选"));
    }
    empty->setVisible(m_model->visibleCount() == 0);
}

void ResultsArea::toggleAll()
{
    m_model->setVisibleChecked(m_model->visibleCheckState() != Qt::Checked);
}

void ResultsArea::showTree(bool shown)
{
    m_treeToggle->setText(shown ? tr("隐藏目录") : tr("显示目录"));
    if (shown != m_tree->isHidden())
        return;
    if (!shown && m_tree->width() > 0)
        m_treeWidth = m_tree->width();
    m_tree->setVisible(shown);
    // By itself a splitter gives what comes back next to no room.
    if (shown)
        m_splitter->setSizes({m_treeWidth, qMax(m_treeWidth, width() - m_treeWidth)});
}

void ResultsArea::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    const bool isFirst = !event->oldSize().isValid();
    const int bothFit = qMax(kBothFit, ThemeColors::current().fontPx(kBothFit));
    const bool isNarrow = width() < bothFit;
    if (isFirst) {
        // Later on the splitter is the user's.
        m_treeWidth = ThemeColors::current().fontPx(kTreeWidth);
        m_splitter->setSizes({m_treeWidth, qMax(m_treeWidth, width() - m_treeWidth)});
        m_tree->setVisible(!isNarrow);
    }
    // On a narrow page the tree gives way to the last columns, which tell a file's chances.
    if (!m_treeChosen && (isFirst || isNarrow != (event->oldSize().width() < bothFit)))
        showTree(!isNarrow);
}

} // namespace scanresults
