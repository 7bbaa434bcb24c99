#pragma once

#include "ui/pages/scanresultspage/directorynodes.h"
#include "ui/pages/scanresultspage/foundrows.h"

#include <QJsonArray>
#include <QStringList>

namespace scanresults {

/// What a row must meet to be shown. Every condition has a value that accepts all rows.
struct ResultFilter
{
    enum Quick { All, Checked, Whole };

    QString text;     ///< Part of the name, in any case.
    QString category; ///< Key of FileTypeCategoryUtils.
    QString source;   ///< Raw source word, or "all".
    int directory = DirectoryNodes::kRootNode;
    Quick quick = All;
    qint64 deletedSinceMs = 0; ///< Since the epoch; 0 accepts all times and unknown ones.
};

using RowOrder = std::vector<int>; ///< Rows by arrival.

/// A filter made ready for many rows.
class RowTest
{
public:
    /// `below` tells the nodes of the filter's directory, empty for all; `checked` is by arrival.
    RowTest(const ResultFilter &filter, std::vector<char> below, std::vector<char> checked);

    bool accepts(const RowSet &rows, int arrival) const;

private:
    ResultFilter m_filter;
    bool m_anyCategory;
    bool m_anySource;
    std::vector<char> m_below;
    std::vector<char> m_checked;
};

/// Sorts by a column of ScanResultsModel; equal rows stay as they are in `order`. Texts are
/// prepared once a row, not once a comparison.
void sortRows(const RowSet &rows, int column, Qt::SortOrder direction, RowOrder *order);
/// Puts rows sorted by score, best first, into an order that is sorted the same way; equal rows of
/// the old order come first.
void mergeByScore(const RowSet &rows, const RowOrder &sorted, RowOrder *order);

/// Everything that a new arrangement of the list takes, held apart from the list that is shown
/// meanwhile.
struct ArrangeJob
{
    RowSet rows;
    RowOrder order;
    std::vector<char> checked; ///< By arrival.
    bool isSorted = false;     ///< `order` is as asked for already.
    int column = 0;
    Qt::SortOrder direction = Qt::DescendingOrder;
    ResultFilter filter;
    std::vector<char> below; ///< Of the filter's directory.

    // Where files come along, the directories are put together anew.
    bool brings = false;
    QVector<QJsonArray> files;
    std::shared_ptr<RowReader> reader;
    DirectoryNodes directories;
    QString directory;      ///< Path of the filter's directory.
    QStringList checkedIds; ///< For a list that replaces another one.
};

struct Arrangement
{
    RowSet rows;
    RowOrder order;
    RowOrder visible;
    std::vector<char> checked;
    bool brings = false;
    DirectoryNodes directories;
    int directory = DirectoryNodes::kRootNode;
};

/// Any thread; the job's reader is the one thing that is not its own.
Arrangement arrange(ArrangeJob job);

} // namespace scanresults
