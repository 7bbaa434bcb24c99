#pragma once

#include "ui/common/utils/scanlog.h"
#include "ui/pages/scanresultspage/scantreemodel.h"
#include "ui/pages/scanresultspage/sortkeys.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QPixmap>

#include <deque>
#include <vector>

namespace scanresults {

/// What a row must meet to be shown. Every condition has a value that accepts all rows.
struct ResultFilter
{
    QString text;     ///< Part of the name, in any case.
    QString category; ///< Key of FileTypeCategoryUtils.
    QString source;   ///< Raw source word, or "all".
    int directory = ScanTreeModel::kRootNode;
};

/// The found files. All rows are kept in the chosen order and a second list holds those that the
/// filter lets through, so that a batch costs the sorting of its own rows and a merge: the rows
/// that are there already are neither compared nor filtered again.
class ScanResultsModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column {
        CheckColumn,
        NameColumn,
        DetailColumn,
        SizeColumn,
        TypeColumn,
        TimeColumn,
        PathColumn,
        SourceColumn,
        IntegrityColumn,
        ChanceColumn,
        ColumnCount
    };
    enum Role {
        CheckedRole = Qt::UserRole, ///< Column 0: ticked or not.
        FileIdRole = Qt::UserRole,  ///< Column 1, like the next ones.
        SizeBytesRole,
        SourceRole, ///< Raw word.
        IntegrityLabelRole,
        IntegrityReasonRole,
        CheckableRole, ///< Column 0: without an id a file cannot be asked for.
    };

    /// `directories` must outlive the model; it learns the directory of every file.
    ScanResultsModel(ScanTreeModel *directories, QObject *parent);

    /// Removes all rows and directories; the filter's directory becomes the root.
    void clear();
    /// Adds the files and sorts all by chance of recovery, best first.
    void append(const QVector<ui::common::utils::ScanFile> &files);
    /// A row by its place in the order of arrival, which never changes; -1 for none.
    int arrivalOf(const QModelIndex &index) const;
    /// The place in the table; -1 if the filter hides the row.
    int visibleRowOf(int arrival) const;
    QString idOf(int arrival) const { return m_rows[size_t(arrival)].file.fileId; }
    int arrivalOfId(const QString &fileId) const;
    const ui::common::utils::ScanFile &file(const QModelIndex &index) const;

    const ResultFilter &filter() const { return m_filter; }
    void setFilter(const ResultFilter &filter);
    int totalCount() const { return static_cast<int>(m_rows.size()); }
    int visibleCount() const { return static_cast<int>(m_visible.size()); }

    /// Whether the column says "未知" in every row, and there are rows.
    bool isUnknownThroughout(int column) const;

    /// Ticks the row if it can be.
    void setChecked(const QModelIndex &index, bool checked);
    void setVisibleChecked(bool checked);
    void checkIds(const QStringList &ids);
    Qt::CheckState visibleCheckState() const;
    int checkedCount() const { return m_checkedCount; }
    int hiddenCheckedCount() const { return m_checkedCount - m_visibleChecked; }
    qint64 checkedBytes() const;
    qint64 largestCheckedBytes() const;
    QStringList checkedIds() const;
    QStringList namesForIds(const QStringList &ids) const;
    QVector<ui::common::utils::ScanLog::Entry> logEntries() const;

    int sortColumn() const { return m_sortColumn; }
    Qt::SortOrder sortOrder() const { return m_sortOrder; }
    /// Columns without an order of their own are left alone. Keeps equal rows as they are.
    void sort(int column, Qt::SortOrder order) override;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

signals:
    void checkedChanged();

private:
    struct Row
    {
        ui::common::utils::ScanFile file;
        QString source;
        QString label;
        QString reason;
        SizeTableWidgetItem size;
        DeletionTimeTableWidgetItem time;
        RecoverabilityTableWidgetItem chance;
        int directory = ScanTreeModel::kRootNode;
        bool checked = false;
    };
    using Order = std::vector<int>; ///< Rows by arrival.
    struct Places
    {
        QModelIndexList indexes;
        QVector<int> arrivals;
    };

    Row makeRow(const ui::common::utils::ScanFile &file);
    void noteKnown(const Row &row);
    bool accepts(const Row &row) const;
    int compare(const Row &a, const Row &b) const;
    bool comesBefore(int a, int b) const;
    void mergeInto(Order *order, const Order &sorted) const;
    void refilter();
    void insertVisible(const Order &sorted);
    Places persistentPlaces() const;
    void movePersistent(const Places &places);
    bool setRowChecked(Row *row, bool checked, bool visible);
    const Row &rowAt(const QModelIndex &index) const;
    QVariant text(const Row &row, int column) const;
    QVariant checkData(const Row &row, int role) const;
    QVariant nameData(const Row &row, int role) const;
    QVariant chanceData(const Row &row, int role) const;
    QVariant toolTip(const Row &row, int column) const;
    QPixmap icon(const QString &type) const;

    ScanTreeModel *m_directories;
    std::deque<Row> m_rows; ///< By arrival; a deque never moves what it holds.
    Order m_order;          ///< All rows as sorted.
    Order m_visible;        ///< Those of m_order that the filter accepts.
    ResultFilter m_filter;
    int m_sortColumn = ChanceColumn;
    Qt::SortOrder m_sortOrder = Qt::DescendingOrder;
    bool m_known[ColumnCount] = {}; ///< By column: a row tells something.
    int m_checkedCount = 0;
    int m_visibleChecked = 0;
    mutable QHash<QString, QPixmap> m_icons; ///< By category.
};

} // namespace scanresults
