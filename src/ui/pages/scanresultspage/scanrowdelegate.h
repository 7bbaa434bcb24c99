#pragma once

#include "ui/common/celldelegate.h"

class QTableView;

namespace scanresults {

/// Cells of the result table: texts, and the chance of recovery as a pill.
class StableTableItemDelegate : public ui::common::CellDelegate
{
    Q_OBJECT

public:
    explicit StableTableItemDelegate(QTableView *view);

    /// Source and integrity ask for the room of their longest common word, so that their columns
    /// don't change width while rows come and go.
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
};

/// The two narrow columns whose cells are one centred picture: check mark and detail button.
class CenterIconTableDelegate : public StableTableItemDelegate
{
    Q_OBJECT

public:
    explicit CenterIconTableDelegate(QTableView *view);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;

private:
    void paintCheckMark(QPainter *painter, const QStyleOptionViewItem &option,
                        const QModelIndex &index) const;
    void paintButton(QPainter *painter, const QStyleOptionViewItem &option) const;

    QTableView *m_view;
};

} // namespace scanresults
