#pragma once

#include "ui/pages/diskanalyzerpage/partitionrules.h"

#include <QWidget>

class QHBoxLayout;
class QLabel;
class QScrollArea;
class QStackedWidget;

namespace diskanalyzer {

class PartitionCard;

/// The partitions as a row of cards, which scrolls sideways when there are many. Object names:
/// PartitionScroll, PartitionStripText.
class PartitionStrip : public QWidget
{
    Q_OBJECT

public:
    explicit PartitionStrip(QWidget *parent = nullptr);

    /// Shows that the partitions are being read.
    void setBusy();
    void setPartitions(const QVector<PartitionInfo> &partitions);
    /// Draws this one as chosen; -1 for none.
    void setSelected(int index);

signals:
    void cardClicked(int index);

private:
    void rebuildCards(const QVector<PartitionInfo> &partitions);
    void step(int from, int by);

    QVector<PartitionCard *> m_cards;
    QStackedWidget *m_views; ///< A line of text, or the cards.
    QLabel *m_text;
    QScrollArea *m_scroll;
    QWidget *m_row = nullptr;
};

} // namespace diskanalyzer
