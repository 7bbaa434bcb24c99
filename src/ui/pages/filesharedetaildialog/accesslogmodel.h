#pragma once

#include "share/sharerecords.h"

#include <QAbstractTableModel>
#include <QList>

namespace fileshare {

/// One page of a share's access log, for a table with a CellDelegate.
class AccessLogModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { TimeColumn, IpColumn, ActionColumn, FileColumn, OutcomeColumn, ColumnCount };

    explicit AccessLogModel(QObject *parent = nullptr);

    void setEntries(const QList<AccessLogEntry> &entries);
    /// Id of the entry; 0 outside the page.
    int entryIdAt(int row) const;
    /// -1 if it is not on the page.
    int rowOf(int entryId) const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    QList<AccessLogEntry> m_entries;
};

} // namespace fileshare
