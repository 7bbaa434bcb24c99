#pragma once

#include "ui/common/itemviews.h"

#include <QTableView>

namespace filesearch {

/// Table of the name search. The last column holds two text buttons that are painted and not
/// widgets.
class ResultTable : public QTableView
{
    Q_OBJECT

public:
    enum RowButton { NoButton = -1, OpenButton = 0, FolderButton = 1 };

    explicit ResultTable(QWidget *parent = nullptr);

    void setModel(QAbstractItemModel *model) override;
    /// Place of a button in its row, in viewport coordinates; tests click there.
    QRect buttonRect(int row, RowButton button) const;

    int hoverRow() const { return m_hoverRow; }
    RowButton hoverButton() const { return m_hoverButton; }
    bool isPressed() const { return m_pressedButton != NoButton; }

signals:
    void buttonClicked(const QModelIndex &index, RowButton button);

protected:
    void mouseMoveEvent(QMouseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    /// Ascending, then descending, then the order of the answer again.
    void sortBy(int column);
    RowButton buttonAt(const QPoint &position) const;
    void setHover(int row, RowButton button);
    void updateRow(int row);
    void layoutColumns();

    int m_hoverRow = -1;
    RowButton m_hoverButton = NoButton;
    RowButton m_pressedButton = NoButton;
    int m_pressedRow = -1;
    int m_sortColumn = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    bool m_layingOut = false;
    bool m_nameWidthChosen = false; ///< The user dragged the border between name and path.
};

/// Paints the cells of a ResultTable.
class ResultCellDelegate : public ui::common::RowDelegate
{
    Q_OBJECT

public:
    explicit ResultCellDelegate(ResultTable *table);

    /// Width that the two buttons need, with the margins of their cell.
    int buttonColumnWidth() const;
    QRect buttonRect(const QRect &cell, ResultTable::RowButton button) const;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

private:
    void paintTag(QPainter *painter, const QRect &cell, const QString &tag) const;
    void paintButtons(QPainter *painter, const QRect &cell, int row, bool busy) const;
    int buttonWidth(ResultTable::RowButton button) const;

    ResultTable *m_table;
};

} // namespace filesearch
