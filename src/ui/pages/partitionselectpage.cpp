#include "ui/pages/partitionselectpage.h"

#include "ui/common/apptooltip.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/emptystate.h"
#include "ui/common/iconwidget.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/segmentedtoggle.h"
#include "ui/common/styletemplate.h"
#include "ui/common/theme.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/partitionselectpage/diskgroupwidget.h"
#include "ui/pages/partitionselectpage/partitioncardwidget.h"
#include "ui/pages/partitionselectpage/partitionrules.h"
#include "ui/pages/scansettingsdialog.h"

#include <QHBoxLayout>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>

using ui::common::AppToolTip;
using ui::common::ElidedLabel;
using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::SegmentedToggle;
using ui::common::ThemeColors;
using ui::common::WrapLabel;
using ui::common::models::DiskGroup;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kGroupSpacing = 14;
constexpr int kToggleWidth = 220;
constexpr int kGearSize = 18;
constexpr int kDeepIndex = 1; ///< Of the mode toggle.

/// What only this page needs.
QString pageSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QScrollArea, QWidget#DiskGroups { background: transparent; border: none; }
QLabel#PartitionTitle { font-weight: 600; }
QFrame#PartitionCard:focus { border-color: @accentHover@; }
QFrame#PartitionCard[selected="true"]:focus { border-color: @textPrimary@; }
QFrame#PartitionCard QLabel#TagLabel { padding: 0px 6px; }
QLabel#TagLabel[tone="plain"] { background: @headerBackground@; border-color: @border@;
    color: @textMuted@; }
QFrame#EmptyDiskBox { border: 1px dashed @textMuted@; border-radius: 12px; }
QLabel#SelectedDeviceLabel { font-weight: 600; }
)qss"));
}

} // namespace

PartitionSelectPage::PartitionSelectPage(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("PartitionSelectPage"));
    setStyleSheet(pageSheet());
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    layout->setSpacing(metrics::kCardGap);
    layout->addLayout(buildHeader());
    layout->addWidget(buildGroupsArea(), 1);
    layout->addWidget(buildToolbar());
    showSampleGroups();
}

QHBoxLayout *PartitionSelectPage::buildHeader()
{
    auto *title = new QLabel(tr("选择磁盘分区"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    auto *subtitle = new QLabel(tr("选择一个分区以开始恢复分析"), this);
    subtitle->setObjectName(QStringLiteral("SubtleText"));
    m_sampleNotice = new WrapLabel(this);
    m_sampleNotice->setObjectName(QStringLiteral("SampleNotice"));
    m_sampleNotice->setProperty("tone", QStringLiteral("warning"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(subtitle);
    texts->addWidget(m_sampleNotice);

    auto *refresh = new QPushButton(tr("刷新"), this);
    ui::common::setKeyRole(refresh, ui::common::KeyRole::Refresh);
    refresh->setObjectName(QStringLiteral("RefreshDisksButton"));
    connect(refresh, &QPushButton::clicked, this, &PartitionSelectPage::requestRefresh);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kCardGap);
    row->addLayout(texts, 1);
    row->addWidget(refresh, 0, Qt::AlignTop);
    return row;
}

QWidget *PartitionSelectPage::buildGroupsArea()
{
    auto *content = new QWidget;
    content->setObjectName(QStringLiteral("DiskGroups"));
    m_groupsLayout = new QVBoxLayout(content);
    m_groupsLayout->setContentsMargins(0, 0, 0, 0);
    m_groupsLayout->setSpacing(kGroupSpacing);
    m_scroll = new QScrollArea(this);
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setFocusPolicy(Qt::NoFocus); // The cards take the focus.
    m_scroll->setWidget(content);

    auto *empty = new EmptyState(IconWidget::Drive, this);
    empty->setTexts(tr("没有检测到磁盘"), tr("请检查磁盘是否已连接，然后重新读取磁盘列表。"));
    empty->setActionText(tr("重新读取"));
    connect(empty, &EmptyState::actionTriggered, this, &PartitionSelectPage::requestRefresh);

    m_views = new QStackedWidget(this);
    m_views->addWidget(m_scroll);
    m_views->addWidget(empty);
    return m_views;
}

QWidget *PartitionSelectPage::buildToolbar()
{
    m_selectedDevice = new ElidedLabel(QStringLiteral("/dev/nvme0n1p2"), Qt::ElideMiddle, this);
    m_selectedDevice->setObjectName(QStringLiteral("SelectedDeviceLabel"));
    m_mode = new SegmentedToggle({tr("快速扫描"), tr("深度扫描")}, this);
    m_mode->setFixedWidth(kToggleWidth);
    auto *start = new QPushButton(tr("开始扫描"), this);
    start->setObjectName(QStringLiteral("PrimaryActionButton"));
    connect(start, &QPushButton::clicked, this, &PartitionSelectPage::requestOpenScanResults);

    auto *toolbar = new QFrame(this);
    toolbar->setObjectName(QStringLiteral("BottomToolbar"));
    auto *row = new QHBoxLayout(toolbar);
    row->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                            metrics::kCardGap);
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(new QLabel(tr("已选择:"), toolbar));
    row->addWidget(m_selectedDevice, 1);
    row->addSpacing(metrics::kCardGap);
    row->addWidget(new QLabel(tr("扫描模式:"), toolbar));
    row->addWidget(m_mode);
    row->addWidget(buildSettingsButton());
    row->addWidget(start);
    return toolbar;
}

QPushButton *PartitionSelectPage::buildSettingsButton()
{
    auto *button = new QPushButton(this);
    button->setObjectName(QStringLiteral("ScanSettingsButton"));
    button->setFixedSize(metrics::kIconButton, metrics::kIconButton);
    button->setIcon(
        IconWidget::makePixmap(IconWidget::Gear, ThemeColors::current().textPrimary, kGearSize));
    button->setIconSize(QSize(kGearSize, kGearSize));
    ui::common::setButtonRole(button, QStringLiteral("icon"));
    const QString tip = tr("设置更多扫描选项");
    button->setAccessibleName(tip);
    AppToolTip::install(button, QString(), tip);
    connect(button, &QPushButton::clicked, this, &PartitionSelectPage::openSettings);
    return button;
}

void PartitionSelectPage::setDiskGroups(const QVector<DiskGroup> &groups)
{
    m_sampleNotice->hide();
    showGroups(groups);
}

void PartitionSelectPage::showSampleGroups(const QString &reason)
{
    m_sampleNotice->setText(
        tr("%1，以下为示例磁盘").arg(reason.isEmpty() ? tr("恢复服务未连接") : reason));
    m_sampleNotice->show();
    showGroups(ui::common::models::buildPartitionGroups());
}

QString PartitionSelectPage::selectedDevicePath() const
{
    return m_selectedDevice->text();
}

QString PartitionSelectPage::selectedScanMode() const
{
    return m_mode->currentIndex() == kDeepIndex ? QStringLiteral("deep") : QStringLiteral("quick");
}

void PartitionSelectPage::showGroups(const QVector<DiskGroup> &groups)
{
    // The owner tells the same disks again and again while it tries to reach the service.
    if (groups == m_groups)
        return;
    m_groups = groups;
    rebuildDiskCards(groups);
    m_views->setCurrentIndex(groups.isEmpty() ? 1 : 0);
}

void PartitionSelectPage::rebuildDiskCards(const QVector<DiskGroup> &groups)
{
    const bool hadFocus = m_scroll->isAncestorOf(focusWidget());
    while (QLayoutItem *item = m_groupsLayout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    for (const DiskGroup &group : groups)
        m_groupsLayout->addWidget(new DiskGroupWidget(group, m_scroll->widget()));
    m_groupsLayout->addStretch(1);
    m_cards = findChildren<PartitionCardWidget *>().toVector();
    bindPartitionCardSelection();
    if (hadFocus && m_selectedCard)
        m_selectedCard->setFocus();
}

void PartitionSelectPage::bindPartitionCardSelection()
{
    m_selectedCard = nullptr;
    if (m_cards.isEmpty()) {
        m_selectedDevice->setText(tr("无可用分区"));
        return;
    }
    PartitionCardWidget *chosen = nullptr;
    for (PartitionCardWidget *card : qAsConst(m_cards)) {
        disconnect(card, nullptr, this, nullptr);
        if (!chosen && card->property("selected").toBool())
            chosen = card;
        connect(card, &PartitionCardWidget::clicked, this,
                [this](const QString &, PartitionCardWidget *clicked) { select(clicked); });
        connect(card, &PartitionCardWidget::stepRequested, this, &PartitionSelectPage::step);
    }
    select(chosen ? chosen : m_cards.first());
}

void PartitionSelectPage::select(PartitionCardWidget *chosen)
{
    m_selectedCard = chosen;
    m_selectedDevice->setText(chosen->devicePath());
    for (PartitionCardWidget *card : qAsConst(m_cards))
        card->setSelected(card == chosen);
}

void PartitionSelectPage::step(Qt::Key key, PartitionCardWidget *from)
{
    QVector<QRect> places;
    places.reserve(m_cards.size());
    for (const PartitionCardWidget *card : qAsConst(m_cards))
        places.append(QRect(card->mapTo(this, QPoint()), card->size()));
    const int next = partitionselect::nextCard(places, m_cards.indexOf(from), key);
    PartitionCardWidget *card = m_cards.at(next);
    card->setFocus();
    m_scroll->ensureWidgetVisible(card, 0, kGroupSpacing);
    select(card);
}

void PartitionSelectPage::openSettings()
{
    // On the heap, since the page may go with its window while the dialog is open.
    const QPointer<ScanSettingsDialog> dialog = new ScanSettingsDialog(m_advancedSettings, this);
    const bool accepted = dialog->exec() == QDialog::Accepted;
    if (!dialog)
        return;
    if (accepted)
        m_advancedSettings = dialog->toJson();
    dialog->deleteLater();
}
