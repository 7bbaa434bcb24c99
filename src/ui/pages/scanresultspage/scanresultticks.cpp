// Ticks of the result table, and what all its rows together tell.
#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include <QSet>

#include <algorithm>
#include <limits>

using ui::common::utils::ScanLog;

namespace scanresults {

bool ScanResultsModel::setRowChecked(int arrival, bool checked)
{
    const QString &id = m_rows.at(arrival).fileId;
    if (isChecked(arrival) == checked || id.isEmpty())
        return false;
    m_checked[size_t(arrival)] = checked ? 1 : 0;
    const int step = checked ? 1 : -1;
    m_checkedCount += step;
    m_visibleChecked += step;
    if (m_isBringing)
        m_newTicks.insert(id, checked);
    return true;
}

void ScanResultsModel::setChecked(const QModelIndex &index, bool checked)
{
    const int arrival = arrivalOf(index);
    if (arrival < 0 || !setRowChecked(arrival, checked))
        return;
    const QModelIndex cell = index.sibling(index.row(), CheckColumn);
    emit dataChanged(cell, cell);
    emit checkedChanged();
}

void ScanResultsModel::setVisibleChecked(bool checked)
{
    bool changed = false;
    for (const int arrival : m_visible)
        changed = setRowChecked(arrival, checked) || changed;
    if (!changed)
        return;
    emit dataChanged(index(0, CheckColumn), index(visibleCount() - 1, CheckColumn));
    emit checkedChanged();
}

Qt::CheckState ScanResultsModel::visibleCheckState() const
{
    if (m_visibleChecked == 0)
        return Qt::Unchecked;
    return m_visibleChecked == visibleCount() ? Qt::Checked : Qt::PartiallyChecked;
}

qint64 ScanResultsModel::checkedBytes() const
{
    qint64 sum = 0;
    for (int arrival = 0; arrival < totalCount(); ++arrival) {
        if (isChecked(arrival))
            sum += qMin(m_rows.at(arrival).sizeBytes, std::numeric_limits<qint64>::max() - sum);
    }
    return sum;
}

qint64 ScanResultsModel::largestCheckedBytes() const
{
    qint64 largest = 0;
    for (int arrival = 0; arrival < totalCount(); ++arrival) {
        if (isChecked(arrival))
            largest = qMax(largest, m_rows.at(arrival).sizeBytes);
    }
    return largest;
}

QStringList ScanResultsModel::checkedIds() const
{
    QStringList ids;
    for (const int arrival : m_order) {
        if (isChecked(arrival))
            ids.append(m_rows.at(arrival).fileId);
    }
    return ids;
}

QStringList ScanResultsModel::namesForIds(const QStringList &ids) const
{
    QSet<QString> wanted;
    wanted.reserve(ids.size());
    for (const QString &id : ids)
        wanted.insert(id);
    QStringList names;
    for (const int arrival : m_order) {
        if (wanted.contains(m_rows.at(arrival).fileId))
            names.append(m_rows.at(arrival).name);
    }
    return names;
}

QVector<ScanLog::Entry> ScanResultsModel::logEntries() const
{
    QVector<ScanLog::Entry> entries;
    entries.reserve(totalCount());
    for (const int arrival : m_order) {
        const FoundRow &row = m_rows.at(arrival);
        entries.append({row.name, row.path(), text(row, SizeColumn).toString(),
                        text(row, TypeColumn).toString(), text(row, TimeColumn).toString(),
                        row.sourceWord, row.label, row.reason});
    }
    return entries;
}

bool ScanResultsModel::isUnknownThroughout(int column) const
{
    const QString FoundRow::*const member = column == TypeColumn     ? &FoundRow::type
                                            : column == TimeColumn   ? &FoundRow::deletionTime
                                            : column == SourceColumn ? &FoundRow::source
                                            : column == ChanceColumn ? &FoundRow::probability
                                                                     : nullptr;
    return member && totalCount() > 0 &&
           std::all_of(m_rows.rows.begin(), m_rows.rows.end(),
                       [member](const FoundRow *row) { return (row->*member).isEmpty(); });
}

QHash<QString, int> ScanResultsModel::categoryCounts() const
{
    QHash<QString, int> counts;
    for (const FoundRow *row : m_rows.rows)
        ++counts[row->category];
    return counts;
}

} // namespace scanresults
