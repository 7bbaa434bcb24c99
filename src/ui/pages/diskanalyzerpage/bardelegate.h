#pragma once

#include <QStyledItemDelegate>

/// Draws a share of the directory tree as a bar with its percentage beside it.
class BarDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

    /// Width that the column needs, in logical pixels.
    static int columnWidth();

protected:
    void initStyleOption(QStyleOptionViewItem *option, const QModelIndex &index) const override;
};
