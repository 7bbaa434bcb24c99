#pragma once

#include "ui/pages/filesharepage/sharerules.h"

#include <QAbstractTableModel>
#include <QVector>

namespace fileshare {

/// The share records as a table with a CellDelegate shows them.
class SessionTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column {
        ContentColumn,
        PathColumn,
        PortColumn,
        PermissionColumn,
        StatusColumn,
        TimeColumn,
        DownloadsColumn,
        ActionColumn,
        ColumnCount
    };

    explicit SessionTableModel(QObject *parent = nullptr);

    /// Resets the model only if other records, or another order of them, came.
    void setRows(const QVector<SessionRow> &rows);
    /// Does nothing for a record that is not listed.
    void updateRow(const SessionRow &row);
    /// Empty outside the table.
    QString idAt(int row) const;
    /// -1 if it is not listed.
    int rowOf(const QString &id) const;
    bool isActiveAt(int row) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    bool hasSameRecords(const QVector<SessionRow> &rows) const;

    QVector<SessionRow> m_rows;
};

} // namespace fileshare
