#include "ui/pages/filesharedetaildialog/accesslogpanel.h"

#include "ui/common/celldelegate.h"
#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/pillpainter.h"
#include "ui/common/sharewidgets.h"
#include "ui/pages/filesharedetaildialog/accesslogmodel.h"
#include "ui/pages/filesharedetaildialog/logrules.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTableView>

using ui::common::CellDelegate;
using ui::common::EmptyState;
using ui::common::IconWidget;
namespace metrics = ui::common::metrics;

namespace fileshare {

namespace {

constexpr int kLeastRows = 2;
constexpr int kPillPadding = 24; ///< Left and right of a pill in its column.

struct Filter
{
    const char *text; ///< UTF-8.
    const char *action;
};

constexpr Filter kFilters[] = {
    {"全部", ""}, {"浏览", "browse"}, {"下载", "download"}, {"认证", "auth_ok"}, {"上传", "upload"},
};

} // namespace

AccessLogPanel::AccessLogPanel(QWidget *parent)
    : QWidget(parent)
    , m_model(new AccessLogModel(this))
    , m_views(new QStackedWidget(this))
{
    buildTable();
    m_empty = new EmptyState(IconWidget::History, this);
    m_empty->setObjectName(QStringLiteral("ShareLogEmpty"));
    m_empty->layout()->setContentsMargins(0, 0, 0, 0); // The list may be low.
    m_views->addWidget(m_table);
    m_views->addWidget(m_empty);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(buildHeader());
    column->addWidget(m_views, 1);
    showPage({}, 0, 0);
}

QBoxLayout *AccessLogPanel::buildHeader()
{
    m_filter = new QComboBox(this);
    m_filter->setObjectName(QStringLiteral("ShareLogFilter"));
    m_filter->setAccessibleName(tr("操作"));
    for (const Filter &filter : kFilters)
        m_filter->addItem(QString::fromUtf8(filter.text), QString::fromLatin1(filter.action));
    m_pageText = subtleLabel(QString(), this);
    m_pageText->setObjectName(QStringLiteral("ShareLogPageText"));
    m_previous = namedButton(tr("上一页"), "ShareLogPrevButton", this);
    m_next = namedButton(tr("下一页"), "ShareLogNextButton", this);
    connect(m_filter, QOverload<int>::of(&QComboBox::currentIndexChanged), this,
            &AccessLogPanel::filterChanged);
    connect(m_previous, &QPushButton::clicked, this, &AccessLogPanel::previousRequested);
    connect(m_next, &QPushButton::clicked, this, &AccessLogPanel::nextRequested);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addWidget(sectionTitle(tr("访问记录"), this));
    row->addWidget(m_filter);
    row->addStretch(1);
    row->addWidget(m_pageText);
    row->addWidget(m_previous);
    row->addWidget(m_next);
    return row;
}

void AccessLogPanel::buildTable()
{
    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("ShareLogTable"));
    m_table->setAccessibleName(tr("访问记录"));
    CellDelegate *delegate = ui::common::setUpCellTable(m_table);
    delegate->setElideMode(AccessLogModel::FileColumn, Qt::ElideMiddle);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setTabKeyNavigation(false);
    m_table->setModel(m_model);
    m_table->setMinimumHeight(metrics::headerHeight() + kLeastRows * metrics::rowHeight());
    QHeaderView *header = m_table->horizontalHeader();
    header->setSectionsClickable(false);
    header->setSectionResizeMode(AccessLogModel::FileColumn, QHeaderView::Stretch);
    header->resizeSection(AccessLogModel::TimeColumn,
                          CellDelegate::textColumnWidth(QStringLiteral("00-00 00:00:00")));
    header->resizeSection(AccessLogModel::IpColumn,
                          CellDelegate::textColumnWidth(QStringLiteral("000.000.000.000")));
    header->resizeSection(AccessLogModel::ActionColumn,
                          CellDelegate::textColumnWidth(actionText(QStringLiteral("auth_ok"))));
    header->resizeSection(AccessLogModel::OutcomeColumn,
                          ui::common::pillSize(outcomeText(LogOutcome::Success)).width() +
                              kPillPadding);
}

QString AccessLogPanel::filter() const
{
    return m_filter->currentData().toString();
}

void AccessLogPanel::showPage(const QList<AccessLogEntry> &entries, int page, int total)
{
    const QModelIndexList chosen = m_table->selectionModel()->selectedRows();
    const int selected = chosen.isEmpty() ? 0 : m_model->entryIdAt(chosen.first().row());
    const int scroll = m_table->verticalScrollBar()->value();
    m_model->setEntries(entries);
    const int row = selected > 0 ? m_model->rowOf(selected) : -1;
    if (row >= 0)
        m_table->selectRow(row);
    m_table->verticalScrollBar()->setValue(scroll);
    m_views->setCurrentIndex(entries.isEmpty() ? 1 : 0);
    if (filter().isEmpty())
        m_empty->setTexts(tr("还没有访问记录"), tr("有人打开共享链接后会显示在这里。"));
    else
        m_empty->setTexts(tr("没有符合条件的访问记录"), tr("请选择其他操作类型。"));
    m_pageText->setText(pageText(page, total));
    m_previous->setEnabled(page > 0);
    m_next->setEnabled(page + 1 < pageCount(total));
}

} // namespace fileshare
