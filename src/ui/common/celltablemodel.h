#pragma once

#include <QAbstractTableModel>
#include <QColor>
#include <QStringList>
#include <QVector>

namespace ui {
namespace common {

/// Rows of plain texts for a table with a CellDelegate, each row with an id of its own.
class CellTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    struct Column
    {
        QString title;
        bool isNumber = false; ///< Numbers that are compared stand at the right.
    };
    struct Cell
    {
        Cell(const QString &shown = QString(), const QColor &color = QColor())
            : text(shown)
            , ink(color)
        {}
        QString text;
        QColor ink; ///< Invalid for the plain colour of texts.
    };
    struct Row
    {
        QString id;
        QVector<Cell> cells;
    };

    CellTableModel(const QVector<Column> &columns, QObject *parent);

    /// Makes the last column one of buttons, the same in each row; `danger` is the index of the
    /// dangerous one, or -1.
    void setActions(const QStringList &actions, int danger);
    void setRows(const QVector<Row> &rows);
    void appendRow(const Row &row);
    QString idOf(int row) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    QVariant alignment(int column) const;

    QVector<Column> m_columns;
    QVector<Row> m_rows;
    QStringList m_actions;
    int m_dangerAction = -1;
};

} // namespace common
} // namespace ui
