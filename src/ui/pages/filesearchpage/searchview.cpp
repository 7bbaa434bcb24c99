#include "ui/pages/filesearchpage/searchview.h"

#include "ui/common/emptystate.h"
#include "ui/common/iconwidget.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/filesearchpage/resultcarddelegate.h"
#include "ui/pages/filesearchpage/resultpreview.h"
#include "ui/pages/filesearchpage/resulttable.h"
#include "ui/pages/filesearchpage/searchresultmodel.h"
#include "ui/pages/keywordtaginput.h"

#include <QAction>
#include <QComboBox>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>

using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace filesearch {

namespace {

constexpr int kDebounceMs = 250;
constexpr int kRefineMs = 300;
constexpr int kSearchIconSize = 16;

QString searchHelp()
{
    return SearchView::tr("甲方 乙方　　　　同时包含这些词，顺序不限\n"
                          "\"年度预算\"　　　完全一致的词组\n"
                          "-草稿　　　　　不含这个词\n"
                          "*.pdf　　　　　文件名的样式\n"
                          "path:工作　　　所在目录包含“工作”\n"
                          "size:>1M　　　 大小，可用 K、M、G，也可写 1M..2G\n"
                          "date:2024-03..　修改时间，可写年、月、日或起止\n"
                          "大小写、全角半角、繁体简体视为相同。\n"
                          "选中一条结果后按空格键预览，点列标题排序。");
}

} // namespace

SearchView::SearchView(Kind kind, QWidget *parent)
    : QWidget(parent)
    , m_kind(kind)
    , m_model(new SearchResultModel(this))
    , m_stack(new QStackedWidget(this))
    , m_state(new EmptyState(IconWidget::Search, this))
    , m_footer(new QLabel(this))
    , m_preview(new ResultPreview(this))
    , m_debounce(new QTimer(this))
    , m_refineTimer(new QTimer(this))
{
    setObjectName(kind == Names ? QStringLiteral("NameSearchView")
                                : QStringLiteral("ContentSearchView"));
    m_edit = makeSearchEdit();
    m_results = makeResultView();
    m_stack->setObjectName(QStringLiteral("ResultStack"));
    m_stack->addWidget(m_state);
    m_stack->addWidget(m_results);
    m_footer->setObjectName(QStringLiteral("ResultFooter"));

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(metrics::kFieldGap);
    layout->addWidget(m_edit);
    layout->addLayout(makeFilterRow());
    layout->addSpacing(metrics::kFieldGap);
    layout->addWidget(m_stack, 1);
    layout->addWidget(m_footer);

    m_debounce->setSingleShot(true);
    m_debounce->setInterval(kDebounceMs);
    m_refineTimer->setSingleShot(true);
    m_refineTimer->setInterval(kRefineMs);
    wire();
    showIdle();
}

QLineEdit *SearchView::makeSearchEdit()
{
    auto *edit = new QLineEdit(this);
    ui::common::setKeyRole(edit, ui::common::KeyRole::Search);
    edit->setObjectName(m_kind == Names ? QStringLiteral("NameSearchEdit")
                                        : QStringLiteral("ContentSearchEdit"));
    edit->setPlaceholderText(m_kind == Names ? tr("按文件名或路径搜索...")
                                             : tr("按文件内容搜索（全文）..."));
    edit->setToolTip(m_kind == Names ? searchHelp() + QLatin1Char('\n') +
                                           tr("文件名也可用拼音查找，如 hetong 或 ht。")
                                     : searchHelp());
    edit->setClearButtonEnabled(true);
    const QPixmap icon = IconWidget::makePixmap(IconWidget::Search,
                                                ThemeColors::current().textMuted, kSearchIconSize);
    edit->addAction(QIcon(icon), QLineEdit::LeadingPosition);
    setFocusProxy(edit);
    return edit;
}

QComboBox *SearchView::addFilter(QHBoxLayout *row, const QString &name)
{
    auto *combo = new QComboBox(this);
    combo->setObjectName(name);
    combo->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    row->addWidget(combo);
    connect(combo, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &SearchView::filtersChanged);
    return combo;
}

QHBoxLayout *SearchView::makeFilterRow()
{
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(new QLabel(tr("过滤:"), this));
    if (m_kind == Names) {
        m_category = addFilter(row, QStringLiteral("CategoryFilter"));
        m_category->addItem(tr("全部类型"), QString());
        m_category->addItem(tr("文档"), QStringLiteral("document"));
        m_category->addItem(tr("图片"), QStringLiteral("image"));
        m_category->addItem(tr("视频"), QStringLiteral("video"));
        m_category->addItem(tr("音频"), QStringLiteral("audio"));
        m_category->addItem(tr("压缩包"), QStringLiteral("archive"));
        m_category->addItem(tr("代码"), QStringLiteral("code"));
    }
    m_size = addFilter(row, QStringLiteral("SizeFilter"));
    m_size->addItem(tr("不限大小"), searchfilters::AnySize);
    m_size->addItem(tr("< 1 MB"), searchfilters::BelowOneMiB);
    m_size->addItem(tr("1-100 MB"), searchfilters::OneToHundredMiB);
    m_size->addItem(tr("> 100 MB"), searchfilters::HundredMiBOrMore);
    m_time = addFilter(row, QStringLiteral("TimeFilter"));
    m_time->addItem(tr("不限时间"), 0);
    m_time->addItem(tr("最近 1 天"), 1);
    m_time->addItem(tr("最近 1 周"), 7);
    m_time->addItem(tr("最近 1 月"), 30);
    m_time->addItem(tr("最近 1 年"), 365);
    m_refine = new KeywordTagInput(this);
    m_refine->setPlaceholderText(tr("在结果中筛选，输入关键词后按回车"));
    row->addWidget(m_refine, 1);
    return row;
}

QAbstractItemView *SearchView::makeResultView()
{
    if (m_kind == Contents) {
        auto *cards = new ResultCardList(this);
        cards->setObjectName(QStringLiteral("ContentResultList"));
        cards->setModel(m_model);
        return cards;
    }
    auto *table = new ResultTable(this);
    table->setObjectName(QStringLiteral("NameResultTable"));
    table->setModel(m_model);
    connect(table, &ResultTable::buttonClicked, this,
            [this](const QModelIndex &index, ResultTable::RowButton button) {
                requestAction(button == ResultTable::OpenButton ? FileAction::Open
                                                                : FileAction::OpenFolder,
                              index);
            });
    return table;
}

void SearchView::wire()
{
    connect(m_edit, &QLineEdit::textChanged, m_debounce, QOverload<>::of(&QTimer::start));
    connect(m_edit, &QLineEdit::returnPressed, this, &SearchView::requestSearch);
    connect(m_debounce, &QTimer::timeout, this, &SearchView::requestSearch);
    connect(m_refineTimer, &QTimer::timeout, this, &SearchView::requestSearch);
    connect(m_refine, &KeywordTagInput::keywordsChanged, this, &SearchView::requestSearch);
    connect(m_refine, &KeywordTagInput::filterChanged, this, [this] {
        // A committed keyword has been searched for already.
        if (refineString() == m_searchedRefine)
            m_refineTimer->stop();
        else
            m_refineTimer->start();
    });
    connect(m_results, &QAbstractItemView::doubleClicked, this,
            [this](const QModelIndex &index) { requestAction(FileAction::Open, index); });
    connect(m_results, &QWidget::customContextMenuRequested, this, [this](const QPoint &position) {
        showContextMenu(m_results->indexAt(position), position);
    });
    m_results->installEventFilter(this);
    connect(m_results->selectionModel(), &QItemSelectionModel::currentChanged, m_preview,
            &ResultPreview::close);
    connect(m_state, &EmptyState::actionTriggered, this, [this] {
        if (m_stateClearsFilters)
            resetFilters();
        else
            requestSearch();
    });
}

QString SearchView::searchText() const
{
    return m_edit->text().trimmed();
}

QString SearchView::refineString() const
{
    return m_refine->keywordString();
}

searchfilters::RowFilter SearchView::rowFilter() const
{
    searchfilters::RowFilter filter;
    if (m_category)
        filter.category = m_category->currentData().toString();
    filter.sizeClass = m_size->currentData().toInt();
    filter.days = m_time->currentData().toInt();
    return filter;
}

void SearchView::requestSearch()
{
    m_debounce->stop();
    m_refineTimer->stop();
    m_searchedRefine = refineString();
    emit searchRequested();
}

void SearchView::resetFilters()
{
    for (QComboBox *combo : {m_category, m_size, m_time}) {
        if (combo)
            combo->setCurrentIndex(0);
    }
    m_refine->clearKeywords();
    // The combos work on the answer that is there; only other keywords need a new one.
    if (refineString() != m_searchedRefine)
        requestSearch();
}

void SearchView::showState(const QString &title, const QString &hint, const QString &action)
{
    m_model->setResults(QVariantList());
    m_footer->clear();
    m_state->setIcon(IconWidget::Search);
    m_state->setTone(EmptyState::Tone::Plain);
    m_state->setTexts(title, hint);
    m_state->setActionText(action);
    m_stack->setCurrentWidget(m_state);
}

void SearchView::showIdle()
{
    if (m_kind == Names)
        showState(tr("输入关键词开始搜索"), tr("按文件名或路径查找，结果随输入更新。"));
    else
        showState(tr("输入关键词开始搜索"), tr("在已建立索引的文档正文中查找，结果随输入更新。"));
}

void SearchView::showSearching()
{
    // Rows of the last search stay until the answer is there: a search takes moments, and an empty
    // list in between would only flicker.
    if (m_model->rowCount() > 0) {
        m_footer->setText(tr("正在搜索..."));
        return;
    }
    showState(tr("正在搜索..."), QString());
    m_state->setTone(EmptyState::Tone::Busy);
}

void SearchView::showResults(const QVariantList &kept, int found, const QString &error,
                             bool keepPlace)
{
    if (!kept.isEmpty()) {
        fillRows(kept, keepPlace);
        return;
    }
    m_stateClearsFilters = error.isEmpty();
    if (!error.isEmpty()) {
        showState(tr("搜索失败"), error, tr("重试"));
        m_state->setTone(EmptyState::Tone::Error);
        return;
    }
    if (found > 0) {
        showState(tr("没有符合筛选条件的结果"),
                  tr("共找到 %1 条结果，都被筛选条件排除了。").arg(found), tr("清除筛选"));
        m_state->setIcon(IconWidget::Filter);
    } else if (!refineString().isEmpty()) {
        showState(tr("没有找到匹配的文件"), tr("请减少筛选关键词，或换一个关键词再试。"),
                  tr("清除筛选"));
    } else {
        showState(tr("没有找到匹配的文件"),
                  tr("请换一个关键词再试；新文件要等索引更新后才能找到。"));
    }
    m_footer->setText(tr("共 %1 条结果").arg(0));
}

void SearchView::fillRows(const QVariantList &rows, bool keepPlace)
{
    const int row = m_results->currentIndex().row();
    const int scroll = m_results->verticalScrollBar()->value();
    m_model->setResults(rows);
    m_footer->setText(tr("共 %1 条结果").arg(rows.size()));
    m_stack->setCurrentWidget(m_results);
    if (keepPlace && row >= 0)
        m_results->setCurrentIndex(m_model->index(qMin(row, rows.size() - 1), 0));
    m_results->verticalScrollBar()->setValue(keepPlace ? scroll : 0);
}

void SearchView::showUnavailable()
{
    showState(tr("文件搜索不可用"), tr("请按上方的提示处理，然后重新打开程序。"));
    m_state->setTone(EmptyState::Tone::Error);
    for (QWidget *input : QList<QWidget *>{m_edit, m_category, m_size, m_time, m_refine}) {
        if (input)
            input->setEnabled(false);
    }
}

void SearchView::setBusyPaths(const QSet<QString> &paths)
{
    m_model->setBusyPaths(paths);
}

bool SearchView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_results && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (handleResultKey(key->key(), key->modifiers()))
            return true;
    } else if (watched == m_results && event->type() == QEvent::ContextMenu &&
               static_cast<QContextMenuEvent *>(event)->reason() == QContextMenuEvent::Keyboard) {
        // The menu key means the current row, wherever the mouse is.
        const QModelIndex index = m_results->currentIndex();
        showContextMenu(index, m_results->visualRect(index).center());
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

bool SearchView::handleResultKey(int key, Qt::KeyboardModifiers modifiers)
{
    const QModelIndex index = m_results->currentIndex();
    if (!index.isValid())
        return false;
    if (key == Qt::Key_Return || key == Qt::Key_Enter)
        requestAction(FileAction::Open, index);
    else if (key == Qt::Key_C && modifiers == Qt::ControlModifier)
        requestAction(FileAction::Copy, index);
    else if (key == Qt::Key_Space)
        m_preview->toggle(pathOf(index), m_results->visualRect(index), m_results->viewport());
    else if (key == Qt::Key_Delete)
        requestAction(FileAction::Delete, index);
    else
        return false;
    return true;
}

void SearchView::showContextMenu(const QModelIndex &index, const QPoint &position)
{
    if (!index.isValid())
        return;
    m_results->setCurrentIndex(index);
    const QString path = pathOf(index);
    const bool busy = index.data(SearchResultModel::BusyRole).toBool();
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("ResultMenu"));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    const auto add = [&](const QString &text, FileAction action) {
        QAction *entry = menu->addAction(text);
        entry->setEnabled(!busy);
        // Queued, so that a dialog of the action never runs inside the closing menu.
        connect(
            entry, &QAction::triggered, this,
            [this, action, path] { emit actionRequested(action, path); }, Qt::QueuedConnection);
    };
    add(tr("打开文件"), FileAction::Open);
    add(tr("打开文件夹"), FileAction::OpenFolder);
    menu->addSeparator();
    add(tr("复制"), FileAction::Copy);
    add(tr("移动到"), FileAction::Move);
    menu->addSeparator();
    add(tr("删除"), FileAction::Delete);
    menu->popup(m_results->viewport()->mapToGlobal(position));
}

QString SearchView::pathOf(const QModelIndex &index) const
{
    return index.data(SearchResultModel::PathRole).toString();
}

void SearchView::requestAction(FileAction action, const QModelIndex &index)
{
    emit actionRequested(action, pathOf(index));
}

} // namespace filesearch
