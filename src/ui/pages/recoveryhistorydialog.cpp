#include "ui/pages/recoveryhistorydialog.h"

#include "ui/common/celldelegate.h"
#include "ui/common/celltablemodel.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/pillpainter.h"
#include "ui/common/theme.h"
#include "ui/pages/recoverydetaildialog.h"
#include "ui/pages/recoverydetaildialog/fileresultmodel.h"
#include "ui/pages/recoveryhistorydialog/taskrules.h"

#include <QHeaderView>
#include <QItemSelectionModel>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>

using recoveryresult::FileResultModel;
using ui::common::CellDelegate;
using ui::common::CellTableModel;
using ui::common::ElidedLabel;
using ui::common::EmptyState;
using ui::common::IconWidget;
namespace metrics = ui::common::metrics;

namespace {

constexpr QSize kSize(900, 640);
constexpr QSize kMinimumSize(680, 480);
constexpr int kPillPadding = 24; ///< Left and right of a pill in its column.
constexpr int kMostWidth = 980;  ///< Fits the smallest screen.
enum TaskColumn { IdColumn, TimeColumn, ResultColumn, OutputColumn };

QLabel *sectionTitle(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(QStringLiteral("SectionTitle"));
    return label;
}

QVBoxLayout *columnIn(QWidget *widget)
{
    auto *column = new QVBoxLayout(widget);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kFieldGap);
    return column;
}

} // namespace

RecoveryHistoryDialog::RecoveryHistoryDialog(QWidget *parent)
    : FramelessDialog(parent, Sizing::Resizable)
    , m_tasks(new CellTableModel({{tr("任务")}, {tr("开始时间")}, {tr("结果")}, {tr("输出目录")}},
                                 this))
    , m_files(new FileResultModel(FileResultModel::ColumnCount, this))
    , m_pages(new QStackedWidget(this))
{
    setObjectName(QStringLiteral("RecoveryHistoryDialog"));
    setWindowTitle(tr("恢复记录"));
    setMinimumSize(kMinimumSize);
    const int width = ui::common::ThemeColors::current().fontPx(kSize.width());
    resize(qMin(width, kMostWidth), kSize.height());

    auto *tables = new QWidget(this);
    QVBoxLayout *column = columnIn(tables);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(buildTasks(), 2);
    column->addWidget(buildFiles(), 3);
    auto *empty = new EmptyState(IconWidget::History, this);
    empty->setTexts(tr("该扫描会话还没有恢复记录。"),
                    tr("在扫描结果中选择文件并开始恢复后，会在这里留下记录。"));
    m_pages->addWidget(tables);
    m_pages->addWidget(empty);
    contentLayout()->addLayout(buildHeading());
    contentLayout()->addWidget(m_pages, 1);
    QPushButton *close = addButton(tr("关闭"), QStringLiteral("primary"));
    close->setObjectName(QStringLiteral("RecoveryHistoryCloseButton"));
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
}

QVBoxLayout *RecoveryHistoryDialog::buildHeading()
{
    auto *heading = new QLabel(tr("恢复任务与文件详情"), this);
    heading->setProperty("textRole", QStringLiteral("dialog-title"));
    m_session = new ElidedLabel(QString(), Qt::ElideMiddle, this);
    m_session->setObjectName(QStringLiteral("RecoveryHistorySession"));
    m_session->setProperty("textRole", QStringLiteral("subtle"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(heading);
    texts->addWidget(m_session);
    return texts;
}

QWidget *RecoveryHistoryDialog::buildTasks()
{
    m_taskTable = new QTableView(this);
    m_taskTable->setObjectName(QStringLiteral("RecoveryTaskTable"));
    CellDelegate *delegate = ui::common::setUpCellTable(m_taskTable);
    delegate->setElideMode(OutputColumn, Qt::ElideMiddle);
    m_taskTable->setSelectionMode(QAbstractItemView::SingleSelection);
    m_taskTable->setTabKeyNavigation(false);
    m_taskTable->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_taskTable->setModel(m_tasks);
    QHeaderView *header = m_taskTable->horizontalHeader();
    header->setSectionsClickable(false);
    header->setSectionResizeMode(OutputColumn, QHeaderView::Stretch);
    header->resizeSection(IdColumn, CellDelegate::textColumnWidth(QStringLiteral("0000000000")));
    header->resizeSection(TimeColumn,
                          CellDelegate::textColumnWidth(QStringLiteral("2000-00-00 00:00:00")));
    header->resizeSection(
        ResultColumn,
        CellDelegate::textColumnWidth(tr("部分异常 · 成功 0000 / 失败 00 / 部分 00 / 000.0 MB")));
    connect(m_taskTable->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex &current) { chooseTask(current.row()); });

    auto *host = new QWidget(this);
    QVBoxLayout *column = columnIn(host);
    column->addWidget(sectionTitle(tr("恢复任务"), host));
    column->addWidget(m_taskTable, 1);
    return host;
}

QWidget *RecoveryHistoryDialog::buildFiles()
{
    auto *table = new QTableView(this);
    table->setObjectName(QStringLiteral("RecoveryResultTable"));
    CellDelegate *delegate = ui::common::setUpCellTable(table);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setTabKeyNavigation(false);
    table->setModel(m_files);
    QHeaderView *header = table->horizontalHeader();
    header->setSectionsClickable(false);
    header->setSectionResizeMode(FileResultModel::ConclusionColumn, QHeaderView::Stretch);
    header->resizeSection(FileResultModel::NameColumn,
                          CellDelegate::textColumnWidth(QString(24, QLatin1Char('0'))));
    header->resizeSection(FileResultModel::StatusColumn,
                          ui::common::pillSize(tr("部分恢复")).width() + kPillPadding);
    header->resizeSection(FileResultModel::ActionColumn,
                          qMax(CellDelegate::actionColumnWidth({tr("详情")}),
                               CellDelegate::textColumnWidth(tr("操作"))));
    connect(delegate, &CellDelegate::actionTriggered, this,
            [this](const QModelIndex &index) { openFileDetailForRow(index.row()); });
    connect(table, &QTableView::activated, this,
            [this](const QModelIndex &index) { openFileDetailForRow(index.row()); });

    m_fileState = new EmptyState(IconWidget::File, this);
    m_fileState->layout()->setContentsMargins(0, 0, 0, 0); // The list may be low.
    connect(m_fileState, &EmptyState::actionTriggered, this, &RecoveryHistoryDialog::requestChosen);
    m_fileViews = new QStackedWidget(this);
    m_fileViews->addWidget(table);
    m_fileViews->addWidget(m_fileState);

    auto *host = new QWidget(this);
    QVBoxLayout *column = columnIn(host);
    column->addWidget(sectionTitle(tr("文件恢复结果"), host));
    column->addWidget(m_fileViews, 1);
    return host;
}

void RecoveryHistoryDialog::setSessionInfo(const QString &sessionId, const QString &devicePath)
{
    const QString text = tr("会话: %1").arg(sessionId);
    m_session->setText(devicePath.isEmpty() ? text : text + QStringLiteral("  ") + devicePath);
}

void RecoveryHistoryDialog::setRecoveryTasks(const QJsonArray &tasks)
{
    m_chosenTask.clear();
    m_tasks->setRows(recoveryhistory::taskRows(tasks));
    m_pages->setCurrentIndex(tasks.isEmpty() ? 1 : 0);
    if (!tasks.isEmpty())
        m_taskTable->selectRow(0);
}

void RecoveryHistoryDialog::chooseTask(int row)
{
    const QString id = m_tasks->idOf(row);
    if (id.isEmpty() || id == m_chosenTask)
        return;
    m_chosenTask = id;
    requestChosen();
}

void RecoveryHistoryDialog::requestChosen()
{
    m_files->setFiles({}, false);
    m_fileState->setTone(EmptyState::Tone::Busy);
    m_fileState->setTexts(tr("正在读取文件恢复结果..."), QString());
    m_fileState->setActionText(QString());
    m_fileViews->setCurrentIndex(1);
    emit recoveryTaskRequested(m_chosenTask);
}

void RecoveryHistoryDialog::setRecoveryTaskDetail(const QString &recoveryId,
                                                  const QJsonObject &detail)
{
    if (!m_chosenTask.isEmpty() && recoveryId == m_chosenTask)
        showFiles(detail);
}

void RecoveryHistoryDialog::setRecoveryTaskFailed(const QString &recoveryId, const QString &message)
{
    if (m_chosenTask.isEmpty() || recoveryId != m_chosenTask)
        return;
    m_fileState->setTone(EmptyState::Tone::Error);
    m_fileState->setTexts(tr("无法读取文件恢复结果"), message);
    m_fileState->setActionText(tr("重试"));
    m_fileViews->setCurrentIndex(1);
}

void RecoveryHistoryDialog::showFiles(const QJsonObject &detail)
{
    m_files->setFiles(recoveryhistory::fileResults(detail), recoveryhistory::isRunning(detail));
    m_fileState->setTone(EmptyState::Tone::Plain);
    m_fileState->setTexts(tr("该任务没有文件记录"), tr("恢复在处理第一个文件之前就已结束。"));
    m_fileState->setActionText(QString());
    m_fileViews->setCurrentIndex(m_files->rowCount() > 0 ? 0 : 1);
}

void RecoveryHistoryDialog::openFileDetailForRow(int row)
{
    RecoveryDetailDialog::open(m_files->at(row), m_files->isRunning(), this);
}
