#include "ui/pages/diskanalyzerpage/largefilestab.h"

#include "ui/common/celldelegate.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/diskanalyzerpage/analyzertext.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>

using ui::common::CellDelegate;
using ui::common::EmptyState;
using ui::common::IconWidget;
namespace metrics = ui::common::metrics;

namespace diskanalyzer {

LargeFilesTab::LargeFilesTab(QWidget *parent)
    : QWidget(parent)
    , m_model(new LargeFileModel(this))
    , m_views(new QStackedWidget(this))
    , m_empty(new EmptyState(IconWidget::File, m_views))
    , m_table(new QTableView(m_views))
{
    buildTable();
    m_views->addWidget(m_empty);
    m_views->addWidget(m_table);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kFieldGap, metrics::kFieldGap, metrics::kFieldGap,
                               metrics::kFieldGap);
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(m_views, 1);
    column->addWidget(buildFooter());
    wire();
    showChecked();
}

void LargeFilesTab::buildTable()
{
    m_table->setObjectName(QStringLiteral("LargeFileTable"));
    m_table->setAccessibleName(tr("大文件排行"));
    m_table->setModel(m_model);
    CellDelegate *delegate = ui::common::setUpCellTable(m_table);
    delegate->setElideMode(LargeFileModel::PathColumn, Qt::ElideMiddle);
    connect(delegate, &CellDelegate::actionTriggered, this, &LargeFilesTab::onAction);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(LargeFileModel::SizeColumn, Qt::DescendingOrder);
    m_table->installEventFilter(this);
    QHeaderView *header = m_table->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::Fixed);
    header->setSectionResizeMode(LargeFileModel::NameColumn, QHeaderView::Stretch);
    header->setSectionResizeMode(LargeFileModel::PathColumn, QHeaderView::Stretch);
    header->resizeSection(LargeFileModel::SizeColumn,
                          CellDelegate::textColumnWidth(QStringLiteral("1023.9 GB")));
    header->resizeSection(LargeFileModel::TimeColumn,
                          CellDelegate::textColumnWidth(QStringLiteral("2000-00-00 00:00")));
    header->resizeSection(LargeFileModel::ActionColumn,
                          CellDelegate::actionColumnWidth({tr("打开目录"), tr("删除")}));
}

QWidget *LargeFilesTab::buildFooter()
{
    m_footerBar = new QWidget(this);
    m_selectAll = new QCheckBox(tr("全选"), m_footerBar);
    m_selectAll->setObjectName(QStringLiteral("LargeFileSelectAll"));
    m_footer = new QLabel(m_footerBar);
    m_footer->setObjectName(QStringLiteral("LargeFileFooter"));
    m_delete = new QPushButton(tr("删除选中"), m_footerBar);
    ui::common::setKeyRole(m_delete, ui::common::KeyRole::Remove);
    m_delete->setObjectName(QStringLiteral("LargeFileDeleteButton"));
    ui::common::setButtonRole(m_delete, QStringLiteral("danger"));
    auto *row = new QHBoxLayout(m_footerBar);
    row->setContentsMargins(metrics::kFieldGap, 0, 0, 0);
    row->setSpacing(metrics::kCardGap);
    row->addWidget(m_selectAll);
    row->addWidget(m_footer);
    row->addStretch(1);
    row->addWidget(m_delete);
    return m_footerBar;
}

void LargeFilesTab::wire()
{
    connect(m_model, &LargeFileModel::checkedChanged, this, &LargeFilesTab::showChecked);
    connect(m_selectAll, &QCheckBox::clicked, m_model, &LargeFileModel::setAllChecked);
    connect(m_delete, &QPushButton::clicked, this, &LargeFilesTab::requestDeleteChecked);
}

void LargeFilesTab::clear(EmptyState::Tone tone, const QString &title, const QString &hint)
{
    m_model->setFiles({});
    m_empty->setTone(tone);
    m_empty->setTexts(title, hint);
    m_views->setCurrentWidget(m_empty);
    m_footerBar->hide();
}

void LargeFilesTab::setFiles(const QVector<LargeFile> &files)
{
    if (files.isEmpty()) {
        clear(EmptyState::Tone::Plain, tr("未找到超过阈值的大文件"),
              tr("可以在扫描设置中调小大文件阈值后重新扫描。"));
        return;
    }
    m_model->setFiles(files);
    const QHeaderView *header = m_table->horizontalHeader();
    m_model->sort(header->sortIndicatorSection(), header->sortIndicatorOrder());
    m_table->scrollToTop();
    m_views->setCurrentWidget(m_table);
    m_footerBar->show();
}

void LargeFilesTab::removePaths(const QSet<QString> &paths)
{
    const int before = count();
    m_model->removePaths(paths);
    if (before > 0 && count() == 0)
        clear(EmptyState::Tone::Plain, tr("列出的大文件都已删除"),
              tr("重新扫描可以查看其余文件。"));
}

int LargeFilesTab::count() const
{
    return m_model->rowCount();
}

void LargeFilesTab::setDeleting(bool deleting)
{
    m_deleting = deleting;
    showChecked();
}

void LargeFilesTab::showChecked()
{
    const int checked = m_model->checkedCount();
    m_footer->setText(m_deleting ? tr("正在删除文件...")
                                 : selectedFilesText(checked, m_model->checkedBytes()));
    QString obstacle;
    if (m_deleting)
        obstacle = tr("正在删除文件...");
    else if (checked == 0)
        obstacle = tr("请先勾选文件");
    ui::common::setUsable(m_delete, obstacle);
    m_selectAll->setChecked(checked > 0 && checked == count());
}

bool LargeFilesTab::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::KeyPress)
        return QWidget::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent *>(event)->key();
    if (key == Qt::Key_Space)
        toggleSelectedRows();
    else if (key == Qt::Key_Delete)
        requestDeleteChecked();
    else if ((key == Qt::Key_Return || key == Qt::Key_Enter) && m_table->currentIndex().isValid())
        onAction(m_table->currentIndex(), LargeFileModel::OpenAction);
    else
        return QWidget::eventFilter(watched, event);
    return true;
}

void LargeFilesTab::toggleSelectedRows()
{
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    const QModelIndex current = m_table->currentIndex();
    const QModelIndex lead = rows.contains(current.sibling(current.row(), 0)) || rows.isEmpty()
                                 ? current.sibling(current.row(), 0)
                                 : rows.first();
    if (!lead.isValid())
        return;
    const Qt::CheckState state =
        lead.data(Qt::CheckStateRole).toInt() == Qt::Checked ? Qt::Unchecked : Qt::Checked;
    for (const QModelIndex &row : rows)
        m_model->setData(row, state, Qt::CheckStateRole);
    if (rows.isEmpty())
        m_model->setData(lead, state, Qt::CheckStateRole);
}

void LargeFilesTab::requestDeleteChecked()
{
    if (!m_deleting && m_model->checkedCount() > 0)
        emit deleteRequested(m_model->checkedFiles());
}

void LargeFilesTab::onAction(const QModelIndex &index, int action)
{
    const LargeFile file = m_model->files().at(index.row());
    if (action == LargeFileModel::OpenAction)
        emit openDirRequested(file.path);
    else if (!m_deleting)
        emit deleteRequested({file});
}

} // namespace diskanalyzer
