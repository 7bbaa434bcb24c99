#include "ui/pages/wechatcleanpage/historydialog.h"

#include "ui/common/emptystate.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/statwidgets.h"
#include "ui/common/theme.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/wechatcleanpage/cleanrecords.h"
#include "ui/pages/wechatcleanpage/cleantexts.h"

#include <QDateTime>
#include <QGridLayout>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedWidget>

using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::StatusPill;
using ui::common::ThemeColors;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace wechatclean {

namespace {

constexpr QSize kSize(760, 600);
constexpr QSize kMinimumSize(560, 400);
constexpr int kMostWidth = 960;
constexpr int kItemsAtOnce = 30;
constexpr int kFilesLines = 10;
constexpr int kCaptionPx = 12;

QString timeOf(const QVariantMap &record, const QString &format)
{
    const QDateTime time = record.value(QStringLiteral("createdAt")).toDateTime();
    return time.isValid() ? time.toLocalTime().toString(format) : HistoryDialog::tr("时间未知");
}

QString statusOf(const QVariantMap &record)
{
    return record.value(QStringLiteral("status")).toString();
}

} // namespace

HistoryDialog::HistoryDialog(QWidget *parent)
    : FramelessDialog(parent, Sizing::Resizable)
    , m_note(new WrapLabel(this))
    , m_stack(new QStackedWidget(this))
    , m_state(new EmptyState(IconWidget::History, this))
    , m_list(new QScrollArea(this))
{
    setObjectName(QStringLiteral("WechatHistoryDialog"));
    setWindowTitle(tr("清理记录"));
    setMinimumSize(kMinimumSize);
    resize(qMin(ThemeColors::current().fontPx(kSize.width()), kMostWidth), kSize.height());

    m_note->setObjectName(QStringLiteral("WechatHistoryNote"));
    m_note->setProperty("textRole", QStringLiteral("subtle"));
    m_note->hide();
    m_state->setObjectName(QStringLiteral("WechatRecordState"));
    m_state->setTone(EmptyState::Tone::Busy);
    m_state->setTexts(tr("正在读取清理记录..."), QString());
    m_state->setActionText(QString());
    m_list->setObjectName(QStringLiteral("WechatRecordList"));
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setWidgetResizable(true);
    m_stack->setObjectName(QStringLiteral("WechatRecordStack"));
    m_stack->addWidget(m_state);
    m_stack->addWidget(m_list);
    contentLayout()->addWidget(m_note);
    contentLayout()->addWidget(m_stack, 1);
    QPushButton *close = addButton(tr("关闭"), QStringLiteral("primary"));
    close->setObjectName(QStringLiteral("WechatHistoryClose"));
    connect(close, &QPushButton::clicked, this, &QDialog::accept);
}

void HistoryDialog::setRecords(const QVariantList &records, int refused)
{
    const int place = m_list->verticalScrollBar()->value();
    m_records = records;
    m_refused = refused;
    m_busy.clear();
    auto *page = new QWidget;
    m_items = new QVBoxLayout(page);
    m_items->setContentsMargins(0, 0, metrics::kFieldGap, 0);
    m_items->setSpacing(metrics::kFieldGap);
    m_items->addStretch(1);
    const int wanted = qMax(m_shown, kItemsAtOnce);
    m_shown = 0;
    while (m_shown < qMin(wanted, m_records.size()))
        addItems();
    // The old page may be the sender of the signal that led here.
    if (QWidget *old = m_list->takeWidget()) {
        old->hide();
        old->deleteLater();
    }
    m_list->setWidget(page);
    m_list->verticalScrollBar()->setValue(place);

    const bool isUnreadable = refused == kUnreadableFolder;
    m_state->setTone(isUnreadable ? EmptyState::Tone::Error : EmptyState::Tone::Plain);
    if (isUnreadable)
        m_state->setTexts(tr("无法读取清理记录"), tr("请检查磁盘和权限，然后重新打开此窗口。"));
    else
        m_state->setTexts(tr("还没有清理记录。"), tr("完成一次清理后，可以在这里查看详情或撤销。"));
    m_stack->setCurrentIndex(records.isEmpty() ? 0 : 1);
    showNote();
}

void HistoryDialog::setBusy(const QString &note)
{
    m_busy = note;
    const QList<QPushButton *> buttons =
        findChildren<QPushButton *>(QStringLiteral("WechatRecordUndoButton"));
    for (QPushButton *button : buttons)
        button->setEnabled(m_busy.isEmpty());
    showNote();
}

void HistoryDialog::showNote()
{
    QString note = m_busy;
    if (note.isEmpty() && m_refused > 0)
        note = tr("有 %1 个记录文件无法识别，没有列出。").arg(m_refused);
    m_note->setText(note);
    m_note->setVisible(!note.isEmpty());
}

void HistoryDialog::addItems()
{
    const int end = qMin(m_shown + kItemsAtOnce, m_records.size());
    for (; m_shown < end; ++m_shown)
        m_items->insertWidget(m_items->count() - 1, makeItem(m_records.at(m_shown).toMap()));
    if (m_shown == m_records.size())
        return;
    auto *more = new QPushButton(tr("显示更多（还有 %1 条）").arg(m_records.size() - m_shown));
    more->setObjectName(QStringLiteral("WechatRecordMore"));
    more->setProperty("role", QStringLiteral("quiet"));
    m_items->insertWidget(m_items->count() - 1, more, 0, Qt::AlignLeft);
    connect(more, &QPushButton::clicked, this, [this, more] {
        m_items->removeWidget(more);
        more->hide();
        more->deleteLater();
        addItems();
    });
}

QWidget *HistoryDialog::makeItem(const QVariantMap &record)
{
    const QString sessionId = record.value(QStringLiteral("sessionId")).toString();
    const QString status = statusOf(record);
    auto *item = new QFrame;
    item->setObjectName(QStringLiteral("WechatRecordItem"));
    item->setProperty("card", true);
    item->setProperty("sessionId", sessionId);
    auto *time = new QLabel(timeOf(record, QStringLiteral("yyyy-MM-dd HH:mm")), item);
    time->setObjectName(QStringLiteral("WechatRecordTime"));
    auto *pill = new StatusPill(operationStatusText(status), operationStatusPill(status), item);
    pill->setObjectName(QStringLiteral("WechatRecordStatus"));
    auto *overview = new WrapLabel(recordOverview(record), item);
    overview->setObjectName(QStringLiteral("WechatRecordOverview"));
    overview->setProperty("textRole", QStringLiteral("subtle"));
    auto *detail = new QPushButton(tr("查看详情"), item);
    detail->setObjectName(QStringLiteral("WechatRecordDetailButton"));
    detail->setProperty("role", QStringLiteral("quiet"));

    auto *heading = new QHBoxLayout;
    heading->setSpacing(metrics::kFieldGap);
    heading->addWidget(time);
    heading->addWidget(pill);
    heading->addStretch(1);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addLayout(heading);
    texts->addWidget(overview);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addLayout(texts, 1);
    row->addWidget(detail);
    if (mayUndo(status)) {
        auto *undo = new QPushButton(tr("撤销"), item);
        undo->setObjectName(QStringLiteral("WechatRecordUndoButton"));
        undo->setProperty("compact", true);
        undo->setEnabled(m_busy.isEmpty());
        connect(undo, &QPushButton::clicked, this,
                [this, sessionId] { emit undoRequested(sessionId); });
        row->addWidget(undo);
    }
    auto *column = new QVBoxLayout(item);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    column->setSpacing(metrics::kCardGap);
    column->addLayout(row);
    connect(detail, &QPushButton::clicked, this, [this, record, detail, item, column] {
        // Made on demand and dropped again: a record may list very many files.
        if (auto *open = item->findChild<QWidget *>(QStringLiteral("WechatRecordDetail"))) {
            delete open;
            detail->setText(tr("查看详情"));
            return;
        }
        column->addWidget(buildRecordDetailPanel(record));
        detail->setText(tr("收起详情"));
    });
    return item;
}

QWidget *HistoryDialog::buildRecordDetailPanel(const QVariantMap &record)
{
    const ThemeColors &colors = ThemeColors::current();
    auto *panel = new QWidget;
    panel->setObjectName(QStringLiteral("WechatRecordDetail"));
    auto *grid = new QGridLayout(panel);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setHorizontalSpacing(metrics::kCardGap);
    grid->setVerticalSpacing(metrics::kFieldGap);
    grid->setColumnStretch(1, 1);
    const auto addRow = [panel, grid](const QString &name, const QString &value) {
        auto *caption = new QLabel(name, panel);
        caption->setProperty("textRole", QStringLiteral("subtle"));
        auto *text = new WrapLabel(value, panel);
        text->setTextInteractionFlags(Qt::NoTextInteraction);
        const int row = grid->rowCount();
        grid->addWidget(caption, row, 0, Qt::AlignTop);
        grid->addWidget(text, row, 1);
        return text;
    };
    addRow(tr("会话 ID"), record.value(QStringLiteral("sessionId")).toString());
    addRow(tr("清理时间"), timeOf(record, QStringLiteral("yyyy-MM-dd HH:mm:ss")));
    WrapLabel *status = addRow(tr("当前状态"), operationStatusText(statusOf(record)));
    QPalette palette = status->palette();
    palette.setColor(
        QPalette::WindowText,
        colors.readable(operationStatusColor(statusOf(record), colors), colors.surface));
    status->setPalette(palette);
    addRow(tr("处理概览"), recordOverview(record));

    auto *caption = new QLabel(tr("处理文件"), panel);
    caption->setProperty("textRole", QStringLiteral("subtle"));
    auto *files = new QPlainTextEdit(panel);
    files->setObjectName(QStringLiteral("WechatRecordFiles"));
    files->setReadOnly(true);
    files->setTabChangesFocus(true);
    files->setPlainText(recordFilesText(record));
    files->setFixedHeight(kFilesLines * metrics::lineHeight(kCaptionPx) + 2 * metrics::kFieldGap);
    grid->addWidget(caption, grid->rowCount(), 0, 1, 2);
    grid->addWidget(files, grid->rowCount(), 0, 1, 2);
    return panel;
}

} // namespace wechatclean
