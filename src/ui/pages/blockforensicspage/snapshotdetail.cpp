#include "ui/pages/blockforensicspage/snapshotdetail.h"

#include "core/jsonnumber.h"
#include "ui/common/celldelegate.h"
#include "ui/common/celltablemodel.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/utils/timetext.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/blockforensicspage/blockmappanel.h"
#include "ui/pages/blockforensicspage/forensicsrules.h"

#include <QGridLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QPushButton>
#include <QResizeEvent>
#include <QScrollBar>
#include <QTableView>
#include <QVBoxLayout>

using ui::common::CellDelegate;
using ui::common::CellTableModel;
using ui::common::ElidedLabel;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace blockforensics {

namespace {

constexpr int kMostRows = 5; ///< Of a table before it scrolls.

QFrame *card(QWidget *parent)
{
    auto *frame = new QFrame(parent);
    frame->setProperty("card", true);
    auto *column = new QVBoxLayout(frame);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kCardGap);
    return frame;
}

QLabel *sectionTitle(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(QStringLiteral("SectionTitle"));
    return label;
}

QTableView *table(CellTableModel *model, const QString &name, QWidget *parent)
{
    auto *view = new QTableView(parent);
    view->setObjectName(name);
    ui::common::setUpCellTable(view);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setTabKeyNavigation(false);
    view->setModel(model);
    view->horizontalHeader()->setSectionsClickable(false);
    return view;
}

void fitTable(QTableView *view)
{
    const int rows = qBound(1, view->model()->rowCount(), kMostRows);
    // Large fonts on a narrow page: the columns then scroll sideways.
    const bool isWide = view->horizontalHeader()->length() > view->viewport()->width();
    const int bar = isWide ? view->horizontalScrollBar()->sizeHint().height() : 0;
    view->setFixedHeight(metrics::headerHeight() + rows * metrics::rowHeight() +
                         2 * view->frameWidth() + bar);
}

QString numberText(const QJsonObject &object, const char *key)
{
    return QString::number(core::toInt64(object.value(QLatin1String(key))));
}

QString orNothing(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("--") : text;
}

} // namespace

SnapshotDetail::SnapshotDetail(QWidget *parent)
    : QWidget(parent)
    , m_extents(new CellTableModel({{tr("物理偏移")}, {tr("逻辑偏移")}, {tr("长度"), true}}, this))
    , m_verifications(new CellTableModel({{tr("时间")},
                                          {tr("完整率"), true},
                                          {tr("未变/变更/清零"), true},
                                          {tr("Inode变化")},
                                          {tr("备注")}},
                                         this))
{
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(buildFacts());
    column->addWidget(buildExtents());
    column->addWidget(buildVerifications());
    m_map = new BlockMapPanel(this);
    column->addWidget(m_map);
    column->addStretch(1);
}

QFrame *SnapshotDetail::buildFacts()
{
    QFrame *frame = card(this);
    m_path = new WrapLabel(frame);
    m_path->setObjectName(QStringLiteral("SectionTitle"));
    m_recover = new QPushButton(tr("恢复文件"), frame);
    m_recover->setObjectName(QStringLiteral("RecoverSnapshotButton"));
    connect(m_recover, &QPushButton::clicked, this, &SnapshotDetail::recoverRequested);
    auto *heading = new QHBoxLayout;
    heading->setSpacing(metrics::kCardGap);
    heading->addWidget(m_path, 1);
    heading->addWidget(m_recover, 0, Qt::AlignTop);

    auto *grid = new QGridLayout;
    grid->setHorizontalSpacing(metrics::kCardGap);
    grid->setVerticalSpacing(metrics::kFieldGap);
    grid->setColumnStretch(1, 1);
    grid->setColumnStretch(3, 1);
    m_device = addFact(grid, 0, 0, tr("设备"), "SnapshotDevice");
    m_inode = addFact(grid, 0, 2, tr("Inode"), "SnapshotInode");
    m_size = addFact(grid, 1, 0, tr("大小"), "SnapshotSize");
    m_blocks = addFact(grid, 1, 2, tr("数据块"), "SnapshotBlocks");
    m_hash = addFact(grid, 2, 0, tr("SHA-256"), "SnapshotHash");
    m_time = addFact(grid, 2, 2, tr("注册时间"), "SnapshotTime");
    auto *column = static_cast<QVBoxLayout *>(frame->layout());
    column->addLayout(heading);
    column->addLayout(grid);
    return frame;
}

ElidedLabel *SnapshotDetail::addFact(QGridLayout *grid, int row, int column, const QString &caption,
                                     const char *name)
{
    auto *label = new QLabel(caption, this);
    label->setProperty("textRole", QStringLiteral("subtle"));
    auto *value = new ElidedLabel(QString(), Qt::ElideMiddle, this);
    value->setObjectName(QLatin1String(name));
    grid->addWidget(label, row, column);
    grid->addWidget(value, row, column + 1);
    return value;
}

QFrame *SnapshotDetail::buildExtents()
{
    QFrame *frame = card(this);
    m_extentTable = table(m_extents, QStringLiteral("ExtentTable"), frame);
    m_extentTable->setSelectionMode(QAbstractItemView::NoSelection);
    m_extentTable->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    frame->layout()->addWidget(sectionTitle(tr("Extent 映射"), frame));
    frame->layout()->addWidget(m_extentTable);
    return frame;
}

QFrame *SnapshotDetail::buildVerifications()
{
    QFrame *frame = card(this);
    auto *caption = new QLabel(tr("备注"), frame);
    m_note = new QLineEdit(frame);
    m_note->setObjectName(QStringLiteral("VerificationNote"));
    m_note->setPlaceholderText(tr("例如：删除后首次验证"));
    caption->setBuddy(m_note);
    m_verify = new QPushButton(tr("执行验证"), frame);
    m_verify->setObjectName(QStringLiteral("VerifyButton"));
    connect(m_verify, &QPushButton::clicked, this,
            [this] { emit verifyRequested(m_note->text()); });
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(caption);
    row->addWidget(m_note, 1);
    row->addWidget(m_verify);

    m_verificationTable = table(m_verifications, QStringLiteral("VerificationTable"), frame);
    QHeaderView *header = m_verificationTable->horizontalHeader();
    header->resizeSection(0, CellDelegate::textColumnWidth(QStringLiteral("2000-00-00 00:00:00")));
    header->resizeSection(1, CellDelegate::textColumnWidth(QStringLiteral("00.0000%")));
    header->resizeSection(2, CellDelegate::textColumnWidth(QStringLiteral("0000 / 000 / 000")));
    header->resizeSection(3, CellDelegate::textColumnWidth(tr("Inode变化")));
    header->setMinimumSectionSize(CellDelegate::textColumnWidth(tr("备注")));
    header->setSectionResizeMode(4, QHeaderView::Stretch);
    const auto choose = [this](const QModelIndex &index) {
        emit verificationChosen(m_verifications->idOf(index.row()));
    };
    connect(m_verificationTable, &QTableView::clicked, this, choose);
    connect(m_verificationTable, &QTableView::activated, this, choose);

    auto *column = static_cast<QVBoxLayout *>(frame->layout());
    column->addWidget(sectionTitle(tr("验证"), frame));
    column->addLayout(row);
    column->addWidget(m_verificationTable);
    return frame;
}

void SnapshotDetail::setSnapshot(const QJsonObject &snapshot)
{
    const auto text = [&snapshot](const char *key) {
        return orNothing(snapshot.value(QLatin1String(key)).toString());
    };
    m_path->setText(text("filePath"));
    m_device->setText(text("devicePath"));
    m_inode->setText(numberText(snapshot, "inodeNumber"));
    m_size->setText(formatSize(core::toInt64(snapshot.value(QLatin1String("fileSize")))));
    m_blocks->setText(numberText(snapshot, "totalBlocks"));
    m_hash->setText(text("fileSha256"));
    m_time->setText(ui::common::utils::timeText(snapshot.value(QLatin1String("snapshotTime"))));
    m_extents->setRows(extentRows(snapshot.value(QLatin1String("extents")).toArray()));
    QVector<CellTableModel::Row> rows;
    const QJsonArray verifications = snapshot.value(QLatin1String("verifications")).toArray();
    for (const QJsonValue &value : verifications)
        rows.append(verificationRow(value.toObject()));
    m_verifications->setRows(rows);
    m_note->clear();
    showMapMessage(rows.isEmpty() ? tr("还没有验证记录。执行一次验证后，这里显示每个块的状态。")
                                  : tr("点击上方的一次验证，查看每个块的状态。"),
                   false);
    fitTables();
}

void SnapshotDetail::addVerification(const QJsonObject &verification)
{
    m_verifications->appendRow(verificationRow(verification));
    fitTables();
    m_verificationTable->selectRow(m_verifications->rowCount() - 1);
    m_verificationTable->scrollToBottom();
}

void SnapshotDetail::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (event->size().width() == event->oldSize().width())
        return;
    layout()->activate(); // The tables have their new widths now.
    fitTables();
}

void SnapshotDetail::fitTables()
{
    fitTable(m_extentTable);
    fitTable(m_verificationTable);
}

void SnapshotDetail::showBlocks(const QJsonArray &blocks)
{
    m_map->setBlocks(blocks);
}

void SnapshotDetail::showMapMessage(const QString &message, bool isError)
{
    m_map->showMessage(message, isError);
}

void SnapshotDetail::setVerifying(bool isVerifying)
{
    m_verify->setEnabled(!isVerifying);
    m_verify->setText(isVerifying ? tr("验证中...") : tr("执行验证"));
}

void SnapshotDetail::setRecovering(bool isRecovering)
{
    m_recover->setEnabled(!isRecovering);
    m_recover->setText(isRecovering ? tr("恢复中...") : tr("恢复文件"));
}

} // namespace blockforensics
