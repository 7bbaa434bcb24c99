#pragma once

#include "ui/common/utils/scanlog.h"
#include "ui/pages/scanresultspage/resultarrangement.h"
#include "ui/pages/scanresultspage/scantreemodel.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QPixmap>

namespace scanresults {

/// The found files. All rows are kept in the chosen order and a second list holds those that the
/// filter lets through, so that a batch costs the sorting of its own rows and a merge. What takes
/// longer than a blink (a long list to read, sort or filter) is made ready on another thread, while
/// the list stands as it was; what was asked for last wins.
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

    /// What happens to the rows.
    enum class Change {
        Grown,
        Filtered,
        Sorted,
        Replaced ///< Rows and directories have new numbers; only ids and paths hold.
    };

    /// `directories` must outlive the model; it learns the directory of every file.
    ScanResultsModel(ScanTreeModel *directories, QObject *parent);

    /// Removes all rows and directories; the filter's directory becomes the root.
    void clear();
    /// Adds the files and sorts all by chance of recovery, best first.
    void append(const QJsonArray &files);
    /// Puts these files in the place of all others. Ticks and the filter's directory stay, by id
    /// and by path.
    void replace(const QJsonArray &files);
    /// Whether an arrangement that was asked for is still to come.
    bool isArranging() const { return m_isArranging; }

    /// A row by its place in the order of arrival, which holds until rows are replaced; -1 for
    /// none.
    int arrivalOf(const QModelIndex &index) const;
    /// The place in the table; -1 if the filter hides the row.
    int visibleRowOf(int arrival) const;
    QString idOf(int arrival) const { return m_rows.at(arrival).fileId; }
    int arrivalOfId(const QString &fileId) const;
    const FoundRow &row(const QModelIndex &index) const;

    const ResultFilter &filter() const { return m_filter; }
    void setFilter(const ResultFilter &filter);
    int totalCount() const { return m_rows.count(); }
    int visibleCount() const { return static_cast<int>(m_visible.size()); }
    /// Whether the column says "未知" in every row, and there are rows.
    bool isUnknownThroughout(int column) const;
    /// Files by key of their category.
    QHash<QString, int> categoryCounts() const;

    /// Ticks the row if it can be.
    void setChecked(const QModelIndex &index, bool checked);
    void setVisibleChecked(bool checked);
    Qt::CheckState visibleCheckState() const;
    int checkedCount() const { return m_checkedCount; }
    int hiddenCheckedCount() const { return m_checkedCount - m_visibleChecked; }
    qint64 checkedBytes() const;
    qint64 largestCheckedBytes() const;
    QStringList checkedIds() const;
    QStringList namesForIds(const QStringList &ids) const;
    QVector<ui::common::utils::ScanLog::Entry> logEntries() const;

    /// As asked for; the rows may follow later.
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
    /// Around every change of the rows.
    void changeBegins(Change change);
    void changeEnds(Change change);
    void arrangingChanged();

private:
    struct Places
    {
        QModelIndexList indexes;
        QVector<int> arrivals;
    };

    bool isOrdered() const;
    bool isByChance() const;
    void appendDirectly(const QJsonArray &files);
    void insertVisible(const RowOrder &sorted);
    void appendQueued();
    ArrangeJob jobOfNow() const;
    void bring(ArrangeJob job, const QJsonArray &files);
    void rearrange(Change change);
    void start(ArrangeJob job, Change change);
    void land(const Arrangement &done, Change change);
    void apply(const Arrangement &done, Change change);
    void takeRows(const Arrangement &done);
    void applyTickChanges();
    void countChecked();
    void setArranging(bool isArranging);
    Places persistentPlaces() const;
    void movePersistent(const Places &places);
    bool setRowChecked(int arrival, bool checked);
    bool isChecked(int arrival) const { return m_checked[size_t(arrival)] != 0; }
    QVariant text(const FoundRow &row, int column) const;
    QVariant checkData(const QModelIndex &index, int role) const;
    QVariant nameData(const FoundRow &row, int role) const;
    QVariant chanceData(const FoundRow &row, int role) const;
    QVariant toolTip(const FoundRow &row, int column) const;
    QPixmap icon(const QString &type) const;

    ScanTreeModel *m_directories;
    std::shared_ptr<RowReader> m_reader; ///< In use by a job that brings files.
    RowSet m_rows;
    RowOrder m_order;            ///< All rows as sorted.
    RowOrder m_visible;          ///< Those of m_order that the filter accepts.
    std::vector<char> m_checked; ///< By arrival.
    int m_checkedCount = 0;
    int m_visibleChecked = 0;

    // What is asked for, and what m_order is.
    ResultFilter m_filter;
    bool m_filterIsNew = false; ///< m_visible does not follow m_filter yet.
    int m_sortColumn = ChanceColumn;
    Qt::SortOrder m_sortOrder = Qt::DescendingOrder;
    int m_orderedColumn = ChanceColumn;
    Qt::SortOrder m_orderedOrder = Qt::DescendingOrder;

    int m_generation = 0;         ///< A job of an earlier one has been overtaken.
    bool m_isArranging = false;   ///< A job of this generation is under way.
    bool m_isBringing = false;    ///< It brings files, so nothing but newer ones may overtake it.
    bool m_isOutdated = false;    ///< Something else was asked for meanwhile.
    QVector<QJsonArray> m_queued; ///< Batches that came while a job was under way.
    QHash<QString, bool> m_newTicks;         ///< By id: changed while files are being brought.
    mutable QHash<QString, QPixmap> m_icons; ///< By category.
};

} // namespace scanresults
