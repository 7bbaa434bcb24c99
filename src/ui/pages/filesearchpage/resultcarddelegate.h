#pragma once

#include <QHash>
#include <QListView>
#include <QStyledItemDelegate>
#include <QVariantMap>

namespace filesearch {

/// Paints a content result as a card: name, path, size and time, score, snippet, and what a refine
/// keyword hit. Heights follow the width of the list.
class ResultCardDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    explicit ResultCardDelegate(QListView *view);

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                   const QModelIndex &index) override;

public slots:
    /// The rows changed, and with them the remembered heights.
    void forgetHeights();

private:
    QListView *m_view;
    mutable QHash<int, int> m_heights; ///< By row, for m_width.
    mutable int m_width = -1;
};

/// List of result cards.
class ResultCardList : public QListView
{
    Q_OBJECT

public:
    explicit ResultCardList(QWidget *parent = nullptr);

    void setModel(QAbstractItemModel *model) override;

protected:
    void resizeEvent(QResizeEvent *event) override;
};

} // namespace filesearch
