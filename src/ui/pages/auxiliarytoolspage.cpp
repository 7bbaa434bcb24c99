#include "ui/pages/auxiliarytoolspage.h"

#include "ui/common/appnoticedialog.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/auxiliarytoolspage/toolitems.h"

#include <QClipboard>
#include <QFontDatabase>
#include <QFrame>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

using ui::common::AppNoticeDialog;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kColumns = 2;

} // namespace

AuxiliaryToolsPage::AuxiliaryToolsPage(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("AuxiliaryToolsPage"));
    auto *content = new QWidget;
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    column->setSpacing(metrics::kCardGap);
    column->addWidget(buildHeader());
    m_grid = new QGridLayout;
    m_grid->setSpacing(metrics::kCardGap);
    column->addLayout(m_grid);
    column->addStretch(1);
    buildToolCards();

    auto *scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidget(content);
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);
}

QWidget *AuxiliaryToolsPage::buildHeader()
{
    auto *header = new QWidget(this);
    auto *title = new QLabel(tr("辅助工具"), header);
    title->setObjectName(QStringLiteral("PageTitle"));
    auto *subtitle = new WrapLabel(
        tr("常见 Linux 开源磁盘检查工具，用于排查机械盘坏道、SSD 健康度与文件系统问题。"), header);
    subtitle->setObjectName(QStringLiteral("SubtleText"));
    auto *back = new QPushButton(tr("返回帮助"), header);
    back->setObjectName(QStringLiteral("BackToHelpButton"));
    connect(back, &QPushButton::clicked, this, &AuxiliaryToolsPage::backRequested);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(subtitle);
    auto *row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);
    row->addLayout(texts, 1);
    row->addWidget(back, 0, Qt::AlignTop);
    return header;
}

void AuxiliaryToolsPage::buildToolCards()
{
    int index = 0;
    const QList<ToolItem> tools = auxiliaryTools();
    for (const ToolItem &tool : tools) {
        m_grid->addWidget(buildCard(tool), index / kColumns, index % kColumns);
        ++index;
    }
    for (int column = 0; column < kColumns; ++column)
        m_grid->setColumnStretch(column, 1);
}

QFrame *AuxiliaryToolsPage::buildCard(const ToolItem &tool)
{
    auto *card = new QFrame(this);
    card->setObjectName(QStringLiteral("AuxToolCard"));
    card->setProperty("card", true);
    card->setProperty("category", tool.category);
    card->setProperty("name", tool.name);
    card->setProperty("summary", tool.summary);
    card->setProperty("command", tool.command);
    card->setProperty("tags", tool.tags);

    auto *name = new QLabel(tool.name, card);
    name->setProperty("textRole", QStringLiteral("section"));
    auto *category = new QLabel(tool.category, card);
    category->setObjectName(QStringLiteral("TagLabel"));
    auto *head = new QHBoxLayout;
    head->addWidget(name, 1);
    head->addWidget(category);
    auto *tags = new WrapLabel(tool.tags, card);
    tags->setProperty("textRole", QStringLiteral("subtle"));
    auto *command = new WrapLabel(tool.command, card);
    command->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    command->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *run = new QPushButton(tr("运行工具"), card);
    run->setObjectName(QStringLiteral("PrimaryActionButton"));
    run->setToolTip(tr("复制命令，由你核对设备名后在终端中运行"));
    connect(run, &QPushButton::clicked, this, [this, tool] { copyCommand(tool); });

    auto *column = new QVBoxLayout(card);
    column->setContentsMargins(metrics::kCardPadding, metrics::kCardPadding, metrics::kCardPadding,
                               metrics::kCardPadding);
    column->setSpacing(metrics::kFieldGap);
    column->addLayout(head);
    column->addWidget(new WrapLabel(tool.summary, card));
    column->addWidget(tags);
    column->addWidget(command);
    column->addStretch(1);
    column->addWidget(run, 0, Qt::AlignLeft);
    return card;
}

void AuxiliaryToolsPage::copyCommand(const ToolItem &tool)
{
    QGuiApplication::clipboard()->setText(tool.command);
    const QString message = tr(
        "命令已复制到剪贴板，程序不会自行运行它。请先把设备名改成要检查的磁盘，再在终端中运行。");
    if (tool.destroysData)
        AppNoticeDialog::showWarning(
            this, tr("命令已复制"),
            message + tr("\n\n这条命令会改写设备上的数据。要恢复文件的磁盘上不要运行它。"),
            tool.command);
    else
        AppNoticeDialog::showInfo(this, tr("命令已复制"), message, tool.command);
}
