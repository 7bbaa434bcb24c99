#include "ui/pages/recoveryprogresspage/filelist.h"

#include "ui/common/celldelegate.h"
#include "ui/common/emptystate.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/pillpainter.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QSortFilterProxyModel>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

using recoveryresult::FileResultModel;
using ui::common::EmptyState;
using ui::common::IconWidget;
namespace metrics = ui::common::metrics;

namespace recoveryprogress {

namespace {

constexpr int kSearchWidth = 320;
constexpr int kStatusPadding = 48; ///< Of the column, around its widest pill.

} // namespace

FileList::FileList(QWidget *parent)
    : QWidget(parent)
    , m_model(new FileResultModel(FileResultModel::StatusColumn + 1, this))
    , m_shown(new QSortFilterProxyModel(this))
    , m_views(new QStackedWidget(this))
    , m_empty(new EmptyState(IconWidget::File, this))
{
    m_shown->setSourceModel(m_model);
    m_shown->setFilterKeyColumn(FileResultModel::NameColumn);
    m_shown->setFilterCaseSensitivity(Qt::CaseInsensitive);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(buildSearchRow());
    column->addWidget(m_views, 1);
    m_views->addWidget(buildTable());
    m_empty->layout()->setContentsMargins(0, 0, 0, 0); // The list may be low.
    m_views->addWidget(m_empty);
    connect(m_empty, &EmptyState::actionTriggered, m_search, &QLineEdit::clear);
    connect(m_model, &QAbstractItemModel::rowsInserted, this, &FileList::showCount);
    showCount();
}

QWidget *FileList::buildSearchRow()
{
    m_search = new QLineEdit(this);
    ui::common::setKeyRole(m_search, ui::common::KeyRole::Search);
    m_search->setObjectName(QStringLiteral("RecoverySearchEdit"));
    m_search->setPlaceholderText(tr("搜索文件名..."));
    m_search->setMaximumWidth(kSearchWidth);
    m_count = new QLabel(this);
    m_count->setObjectName(QStringLiteral("RecoveryShownCount"));
    m_count->setProperty("textRole", QStringLiteral("subtle"));
    connect(m_search, &QLineEdit::textChanged, this, [this](const QString &text) {
        m_shown->setFilterFixedString(text.trimmed());
        showCount();
    });
    auto *host = new QWidget(this);
    auto *row = new QHBoxLayout(host);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kCardGap);
    row->addWidget(m_search, 1);
    row->addStretch(1);
    row->addWidget(m_count);
    return host;
}

QTableView *FileList::buildTable()
{
    auto *table = new QTableView(this);
    table->setObjectName(QStringLiteral("RecoveryFileTable"));
    ui::common::setUpCellTable(table);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setTabKeyNavigation(false);
    table->setModel(m_shown);
    QHeaderView *header = table->horizontalHeader();
    header->setSectionsClickable(false);
    header->setSectionResizeMode(FileResultModel::NameColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(FileResultModel::StatusColumn, QHeaderView::Fixed);
    header->resizeSection(FileResultModel::StatusColumn,
                          ui::common::pillSize(tr("部分恢复")).width() + kStatusPadding);
    connect(table, &QTableView::activated, this, [this](const QModelIndex &index) {
        emit detailRequested(m_shown->mapToSource(index).row());
    });
    return table;
}

void FileList::setFiles(const QVector<recoveryresult::FileResult> &files)
{
    m_search->clear();
    m_model->setFiles(files, true);
    showCount();
}

void FileList::showCount()
{
    const int total = m_model->rowCount();
    const int shown = m_shown->rowCount();
    m_count->setText(total == 0 ? QString() : tr("显示 %1 / %2 个文件").arg(shown).arg(total));
    if (total > 0) {
        m_empty->setIcon(IconWidget::Search);
        m_empty->setTexts(tr("没有匹配的文件"), QString());
        m_empty->setActionText(tr("清除搜索"));
    } else {
        m_empty->setIcon(IconWidget::File);
        m_empty->setTexts(tr("还没有文件"), tr("服务开始处理后，文件会显示在这里。"));
        m_empty->setActionText(QString());
    }
    m_views->setCurrentIndex(shown > 0 ? 0 : 1);
}

} // namespace recoveryprogress
