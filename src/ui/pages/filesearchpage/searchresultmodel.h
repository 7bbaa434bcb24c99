#pragma once

#include <QAbstractTableModel>
#include <QHash>
#include <QPixmap>
#include <QSet>
#include <QVariantList>
#include <QVariantMap>

namespace filesearch {

/// Rows of a result view in the order of the query. The table shows all columns; the card list
/// draws the first one from ResultRole.
class SearchResultModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { NameColumn, PathColumn, SizeColumn, TimeColumn, ActionColumn, ColumnCount };
    enum Role {
        ResultRole = Qt::UserRole, ///< QVariantMap of the query.
        PathRole,                  ///< Runtime path.
        BusyRole,                  ///< True while the file is being moved or deleted.
        OfflineRole,               ///< True if the disk of the file is not there.
        TagRole,                   ///< How the row was found, where that is not plain to see.
    };

    explicit SearchResultModel(QObject *parent = nullptr);

    void setResults(const QVariantList &results);
    void setBusyPaths(const QSet<QString> &paths);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;
    /// Column -1 is the order of the answer.
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;
    /// Rows can be dragged out as files.
    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;

private:
    QVariant text(const QVariantMap &result, int column) const;
    QPixmap categoryIcon(const QString &category) const;

    void sortRows();

    QVariantList m_answer;  ///< In its own order.
    QVariantList m_results; ///< As they are shown.
    int m_sortColumn = -1;
    Qt::SortOrder m_sortOrder = Qt::AscendingOrder;
    QSet<QString> m_busyPaths;
    mutable QHash<QString, QPixmap> m_icons;
};

} // namespace filesearch
