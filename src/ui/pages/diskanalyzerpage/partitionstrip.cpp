#include "ui/pages/diskanalyzerpage/partitionstrip.h"

#include "ui/common/layoutmetrics.h"
#include "ui/pages/diskanalyzerpage/partitioncard.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedWidget>

namespace metrics = ui::common::metrics;

namespace diskanalyzer {

namespace {

constexpr int kScrollBarRoom = 14;

} // namespace

PartitionStrip::PartitionStrip(QWidget *parent)
    : QWidget(parent)
    , m_views(new QStackedWidget(this))
    , m_text(new QLabel(m_views))
    , m_scroll(new QScrollArea(m_views))
{
    m_text->setObjectName(QStringLiteral("PartitionStripText"));
    m_text->setAlignment(Qt::AlignCenter);
    m_scroll->setObjectName(QStringLiteral("PartitionScroll"));
    m_scroll->setWidgetResizable(true);
    m_scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setFocusPolicy(Qt::NoFocus);
    m_views->addWidget(m_text);
    m_views->addWidget(m_scroll);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_views);
    setBusy();
    // A card with any texts, so that the strip keeps its height while there are none.
    setFixedHeight(PartitionCard(PartitionInfo(), this).sizeHint().height() + kScrollBarRoom);
}

void PartitionStrip::setBusy()
{
    m_text->setText(tr("正在读取分区..."));
    m_views->setCurrentWidget(m_text);
}

void PartitionStrip::setPartitions(const QVector<PartitionInfo> &partitions)
{
    rebuildCards(partitions);
    m_text->setText(tr("没有找到可以分析的分区"));
    m_views->setCurrentWidget(partitions.isEmpty() ? static_cast<QWidget *>(m_text) : m_scroll);
}

void PartitionStrip::rebuildCards(const QVector<PartitionInfo> &partitions)
{
    m_cards.clear();
    m_row = new QWidget(m_scroll);
    auto *row = new QHBoxLayout(m_row);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kCardGap);
    for (int i = 0; i < partitions.size(); ++i) {
        auto *card = new PartitionCard(partitions.at(i), m_row);
        connect(card, &PartitionCard::clicked, this, [this, i] { emit cardClicked(i); });
        connect(card, &PartitionCard::stepRequested, this, [this, i](int by) { step(i, by); });
        row->addWidget(card, 0, Qt::AlignTop);
        m_cards.append(card);
    }
    row->addStretch(1);
    m_scroll->setWidget(m_row);
}

void PartitionStrip::step(int from, int by)
{
    const int to = from + by;
    if (to < 0 || to >= m_cards.size())
        return;
    m_cards.at(to)->setFocus(Qt::TabFocusReason);
    m_scroll->ensureWidgetVisible(m_cards.at(to), metrics::kCardGap, 0);
    emit cardClicked(to);
}

void PartitionStrip::setSelected(int index)
{
    for (int i = 0; i < m_cards.size(); ++i)
        m_cards.at(i)->setSelected(i == index);
}

} // namespace diskanalyzer
