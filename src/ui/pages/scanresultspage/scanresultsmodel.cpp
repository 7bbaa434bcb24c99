#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include "ui/common/utils/filetypecategoryutils.h"

#include <QSet>

#include <algorithm>
#include <limits>

using ui::common::utils::FileTypeCategoryUtils;
using ui::common::utils::ScanFile;
using ui::common::utils::ScanLog;
namespace utils = ui::common::utils;

namespace scanresults {

namespace {

QSet<QString> asSet(const QStringList &ids)
{
    QSet<QString> set;
    set.reserve(ids.size());
    for (const QString &id : ids)
        set.insert(id);
    return set;
}

} // namespace

ScanResultsModel::ScanResultsModel(ScanTreeModel *directories, QObject *parent)
    : QAbstractTableModel(parent)
    , m_directories(directories)
{}

void ScanResultsModel::clear()
{
    beginResetModel();
    m_rows.clear();
    m_order.clear();
    m_visible.clear();
    m_filter.directory = ScanTreeModel::kRootNode;
    std::fill(std::begin(m_known), std::end(m_known), false);
    m_checkedCount = 0;
    m_visibleChecked = 0;
    m_directories->clear();
    endResetModel();
    emit checkedChanged();
}

ScanResultsModel::Row ScanResultsModel::makeRow(const ScanFile &file)
{
    Row row;
    row.file = file;
    row.file.size = utils::sizeText(file);
    row.source = utils::sourceWord(file.source);
    row.label = utils::integrityLabel(file);
    row.reason = utils::integrityReason(file, row.label);
    row.size = SizeTableWidgetItem(row.file.size);
    row.time = DeletionTimeTableWidgetItem(file.deletionTime);
    row.chance = RecoverabilityTableWidgetItem(file, row.label);
    row.directory = m_directories->findOrCreateTreePath(utils::directoryOf(file.path, file.name));
    m_directories->addFile(row.directory);
    noteKnown(row);
    return row;
}

void ScanResultsModel::noteKnown(const Row &row)
{
    m_known[TypeColumn] |= !row.file.type.isEmpty();
    m_known[TimeColumn] |= !row.file.deletionTime.isEmpty();
    m_known[SourceColumn] |= !row.file.source.isEmpty();
    m_known[ChanceColumn] |= !row.file.probability.isEmpty();
}

bool ScanResultsModel::isUnknownThroughout(int column) const
{
    const bool canBeUnknown = column == TypeColumn || column == TimeColumn ||
                              column == SourceColumn || column == ChanceColumn;
    return canBeUnknown && totalCount() > 0 && !m_known[column];
}

void ScanResultsModel::append(const QVector<ScanFile> &files)
{
    if (m_sortColumn != ChanceColumn || m_sortOrder != Qt::DescendingOrder)
        sort(ChanceColumn, Qt::DescendingOrder);
    Order fresh;
    fresh.reserve(static_cast<size_t>(files.size()));
    for (const ScanFile &file : files) {
        fresh.push_back(totalCount());
        m_rows.push_back(makeRow(file));
    }
    const auto before = [this](int a, int b) {
        return comesBefore(a, b);
    };
    std::stable_sort(fresh.begin(), fresh.end(), before);
    mergeInto(&m_order, fresh);
    const auto hidden = [this](int arrival) {
        return !accepts(m_rows[size_t(arrival)]);
    };
    fresh.erase(std::remove_if(fresh.begin(), fresh.end(), hidden), fresh.end());
    insertVisible(fresh);
    m_directories->publish();
}

void ScanResultsModel::mergeInto(Order *order, const Order &sorted) const
{
    // From the back, each block of old rows moves once. Searching the place of each new row takes
    // fewer comparisons than walking the old ones.
    const auto before = [this](int a, int b) {
        return comesBefore(a, b);
    };
    auto oldEnd = static_cast<Order::difference_type>(order->size());
    order->resize(order->size() + sorted.size());
    auto target = order->end();
    for (auto fresh = sorted.rbegin(); fresh != sorted.rend(); ++fresh) {
        const auto begin = order->begin();
        const auto place = std::upper_bound(begin, begin + oldEnd, *fresh, before);
        target = std::move_backward(place, begin + oldEnd, target);
        oldEnd = place - begin;
        *--target = *fresh;
    }
}

void ScanResultsModel::insertVisible(const Order &sorted)
{
    if (sorted.empty())
        return;
    // Told in two steps that views understand: rows come at the end, then all take their places.
    const int first = visibleCount();
    beginInsertRows(QModelIndex(), first, first + static_cast<int>(sorted.size()) - 1);
    Order merged = m_visible;
    m_visible.insert(m_visible.end(), sorted.begin(), sorted.end());
    endInsertRows();
    if (first == 0)
        return;
    mergeInto(&merged, sorted);
    emit layoutAboutToBeChanged({}, VerticalSortHint);
    const Places places = persistentPlaces();
    m_visible.swap(merged);
    movePersistent(places);
    emit layoutChanged({}, VerticalSortHint);
}

ScanResultsModel::Places ScanResultsModel::persistentPlaces() const
{
    Places places;
    places.indexes = persistentIndexList();
    for (const QModelIndex &index : places.indexes)
        places.arrivals.append(arrivalOf(index));
    return places;
}

void ScanResultsModel::movePersistent(const Places &places)
{
    if (places.indexes.isEmpty())
        return;
    std::vector<int> rows(m_rows.size(), -1);
    for (size_t row = 0; row < m_visible.size(); ++row)
        rows[size_t(m_visible[row])] = static_cast<int>(row);
    QModelIndexList moved;
    moved.reserve(places.indexes.size());
    for (int i = 0; i < places.indexes.size(); ++i) {
        const int row = rows[size_t(places.arrivals.at(i))];
        moved.append(index(row, places.indexes.at(i).column()));
    }
    changePersistentIndexList(places.indexes, moved);
}

bool ScanResultsModel::accepts(const Row &row) const
{
    if (!m_filter.text.isEmpty() && !row.file.name.contains(m_filter.text, Qt::CaseInsensitive))
        return false;
    if (!FileTypeCategoryUtils::matchesCategory(row.file.type, m_filter.category))
        return false;
    if (!m_filter.source.isEmpty() && m_filter.source != QLatin1String("all") &&
        m_filter.source != row.file.source)
        return false;
    return m_filter.directory == ScanTreeModel::kRootNode ||
           m_directories->isBelow(row.directory, m_filter.directory);
}

void ScanResultsModel::setFilter(const ResultFilter &filter)
{
    m_filter = filter;
    beginResetModel();
    refilter();
    endResetModel();
    emit checkedChanged();
}

void ScanResultsModel::refilter()
{
    m_visible.clear();
    m_visibleChecked = 0;
    for (const int arrival : m_order) {
        const Row &row = m_rows[size_t(arrival)];
        if (!accepts(row))
            continue;
        m_visible.push_back(arrival);
        m_visibleChecked += row.checked ? 1 : 0;
    }
}

int ScanResultsModel::compare(const Row &a, const Row &b) const
{
    const auto byKey = [](const auto &left, const auto &right) {
        return left < right ? -1 : (right < left ? 1 : 0);
    };
    switch (m_sortColumn) {
    case NameColumn:
        return QString::compare(a.file.name, b.file.name, Qt::CaseInsensitive);
    case SizeColumn:
        return byKey(a.size, b.size);
    case TypeColumn:
        return QString::compare(a.file.type, b.file.type, Qt::CaseInsensitive);
    case TimeColumn:
        return byKey(a.time, b.time);
    case PathColumn:
        return QString::compare(a.file.path, b.file.path, Qt::CaseInsensitive);
    case SourceColumn:
        return QString::compare(a.source, b.source);
    case IntegrityColumn:
        return QString::compare(a.label, b.label);
    default:
        return byKey(a.chance, b.chance);
    }
}

bool ScanResultsModel::comesBefore(int a, int b) const
{
    const int order = compare(m_rows[size_t(a)], m_rows[size_t(b)]);
    return m_sortOrder == Qt::AscendingOrder ? order < 0 : order > 0;
}

void ScanResultsModel::sort(int column, Qt::SortOrder order)
{
    const bool sortable = column == NameColumn || (column >= SizeColumn && column < ColumnCount);
    if (!sortable || (column == m_sortColumn && order == m_sortOrder))
        return;
    m_sortColumn = column;
    m_sortOrder = order;
    emit layoutAboutToBeChanged({}, VerticalSortHint);
    const Places places = persistentPlaces();
    std::stable_sort(m_order.begin(), m_order.end(),
                     [this](int a, int b) { return comesBefore(a, b); });
    std::vector<bool> isVisible(m_rows.size(), false);
    for (const int arrival : m_visible)
        isVisible[size_t(arrival)] = true;
    std::copy_if(m_order.begin(), m_order.end(), m_visible.begin(),
                 [&isVisible](int arrival) { return isVisible[size_t(arrival)]; });
    movePersistent(places);
    emit layoutChanged({}, VerticalSortHint);
}

int ScanResultsModel::arrivalOf(const QModelIndex &index) const
{
    return index.isValid() ? m_visible[size_t(index.row())] : -1;
}

int ScanResultsModel::visibleRowOf(int arrival) const
{
    const auto place = std::find(m_visible.begin(), m_visible.end(), arrival);
    return place == m_visible.end() ? -1 : static_cast<int>(place - m_visible.begin());
}

int ScanResultsModel::arrivalOfId(const QString &fileId) const
{
    const auto row = std::find_if(m_rows.begin(), m_rows.end(), [&fileId](const Row &candidate) {
        return candidate.file.fileId == fileId;
    });
    return row == m_rows.end() ? -1 : static_cast<int>(row - m_rows.begin());
}

const ScanResultsModel::Row &ScanResultsModel::rowAt(const QModelIndex &index) const
{
    return m_rows[size_t(m_visible[size_t(index.row())])];
}

const ScanFile &ScanResultsModel::file(const QModelIndex &index) const
{
    return rowAt(index).file;
}

bool ScanResultsModel::setRowChecked(Row *row, bool checked, bool visible)
{
    if (row->checked == checked || row->file.fileId.isEmpty())
        return false;
    row->checked = checked;
    const int step = checked ? 1 : -1;
    m_checkedCount += step;
    m_visibleChecked += visible ? step : 0;
    return true;
}

void ScanResultsModel::setChecked(const QModelIndex &index, bool checked)
{
    const int arrival = arrivalOf(index);
    if (arrival < 0 || !setRowChecked(&m_rows[size_t(arrival)], checked, true))
        return;
    const QModelIndex cell = index.sibling(index.row(), CheckColumn);
    emit dataChanged(cell, cell);
    emit checkedChanged();
}

void ScanResultsModel::setVisibleChecked(bool checked)
{
    bool changed = false;
    for (const int arrival : m_visible)
        changed = setRowChecked(&m_rows[size_t(arrival)], checked, true) || changed;
    if (!changed)
        return;
    emit dataChanged(index(0, CheckColumn), index(visibleCount() - 1, CheckColumn));
    emit checkedChanged();
}

void ScanResultsModel::checkIds(const QStringList &ids)
{
    if (ids.isEmpty())
        return;
    const QSet<QString> wanted = asSet(ids);
    for (Row &row : m_rows) {
        if (wanted.contains(row.file.fileId))
            setRowChecked(&row, true, accepts(row));
    }
    if (visibleCount() > 0)
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
    for (const Row &row : m_rows) {
        if (row.checked)
            sum += qMin(row.file.sizeBytes, std::numeric_limits<qint64>::max() - sum);
    }
    return sum;
}

qint64 ScanResultsModel::largestCheckedBytes() const
{
    qint64 largest = 0;
    for (const Row &row : m_rows) {
        if (row.checked)
            largest = qMax(largest, row.file.sizeBytes);
    }
    return largest;
}

QStringList ScanResultsModel::checkedIds() const
{
    QStringList ids;
    for (const int arrival : m_order) {
        if (m_rows[size_t(arrival)].checked)
            ids.append(m_rows[size_t(arrival)].file.fileId);
    }
    return ids;
}

QStringList ScanResultsModel::namesForIds(const QStringList &ids) const
{
    const QSet<QString> wanted = asSet(ids);
    QStringList names;
    for (const int arrival : m_order) {
        const ScanFile &candidate = m_rows[size_t(arrival)].file;
        if (wanted.contains(candidate.fileId))
            names.append(candidate.name);
    }
    return names;
}

QVector<ScanLog::Entry> ScanResultsModel::logEntries() const
{
    QVector<ScanLog::Entry> entries;
    entries.reserve(totalCount());
    for (const int arrival : m_order) {
        const Row &row = m_rows[size_t(arrival)];
        entries.append({row.file.name, row.file.path, text(row, SizeColumn).toString(),
                        text(row, TypeColumn).toString(), text(row, TimeColumn).toString(),
                        row.source, row.label, row.reason});
    }
    return entries;
}

int ScanResultsModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : visibleCount();
}

int ScanResultsModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

Qt::ItemFlags ScanResultsModel::flags(const QModelIndex &index) const
{
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren
                           : Qt::NoItemFlags;
}

} // namespace scanresults
