#pragma once

#include "ui/pages/diskanalyzerpage/duplicatelistview.h"

#include <QStyledItemDelegate>

namespace diskanalyzer {

struct DuplicateFile;
struct DuplicateGroup;

/// Paints the rows of a DuplicateListView: head and files of a group form one card.
class DuplicateCardDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    DuplicateCardDelegate(DuplicateModel *model, QObject *parent);

    /// The part under the mouse, which is drawn as such.
    void setHovered(const QModelIndex &index, DuplicateListView::Part part);
    /// Where the part stands in an item that has this rectangle.
    QRect partRect(const QRect &item, const QModelIndex &index, DuplicateListView::Part part) const;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

private:
    void paintGround(QPainter *painter, const QRect &row, const QModelIndex &index,
                     const QColor &ground) const;
    void paintHead(QPainter *painter, const QRect &item, const QModelIndex &index) const;
    void paintFile(QPainter *painter, const QStyleOptionViewItem &option, const QRect &row,
                   const QModelIndex &index, const QColor &ground) const;
    void paintButton(QPainter *painter, const QRect &item, const QModelIndex &index,
                     DuplicateListView::Part part) const;
    QRect rowRect(const QRect &item, const QModelIndex &index) const;

    DuplicateModel *m_model;
    QPersistentModelIndex m_hoveredIndex;
    DuplicateListView::Part m_hoveredPart = DuplicateListView::NoPart;
};

} // namespace diskanalyzer
