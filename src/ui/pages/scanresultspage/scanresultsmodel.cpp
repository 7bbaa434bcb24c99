#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include "core/runinpool.h"

#include <algorithm>

namespace scanresults {

namespace {

// Below these the work is over before anyone could look.
constexpr int kDirectFiles = 1000; ///< Of a batch.
constexpr int kDirectRows = 4000;  ///< Of the list.

} // namespace

ScanResultsModel::ScanResultsModel(ScanTreeModel *directories, QObject *parent)
    : QAbstractTableModel(parent)
    , m_directories(directories)
    , m_reader(std::make_shared<RowReader>())
{}

void ScanResultsModel::clear()
{
    ++m_generation;
    m_isBringing = false;
    m_isOutdated = false;
    m_queued.clear();
    m_newTicks.clear();
    beginResetModel();
    m_reader = std::make_shared<RowReader>();
    m_rows = RowSet();
    m_order.clear();
    m_visible.clear();
    m_checked.clear();
    m_filter.directory = ScanTreeModel::kRootNode;
    m_checkedCount = 0;
    m_visibleChecked = 0;
    m_directories->clear();
    endResetModel();
    setArranging(false);
    emit checkedChanged();
}

bool ScanResultsModel::isByChance() const
{
    return m_sortColumn == ChanceColumn && m_sortOrder == Qt::DescendingOrder;
}

bool ScanResultsModel::isOrdered() const
{
    return m_orderedColumn == m_sortColumn && m_orderedOrder == m_sortOrder;
}

void ScanResultsModel::append(const QJsonArray &files)
{
    if (files.isEmpty())
        return;
    if (m_isArranging || !m_queued.isEmpty()) {
        m_queued.append(files);
        return;
    }
    const bool fits = isByChance() || totalCount() <= kDirectRows;
    if (fits && files.size() <= kDirectFiles) {
        sort(ChanceColumn, Qt::DescendingOrder);
        appendDirectly(files);
        return;
    }
    m_sortColumn = ChanceColumn;
    m_sortOrder = Qt::DescendingOrder;
    bring(jobOfNow(), files);
}

void ScanResultsModel::appendDirectly(const QJsonArray &files)
{
    emit changeBegins(Change::Grown);
    QJsonArray left = files;
    const RowChunkPointer chunk = m_reader->read(&left);
    QVector<int> nodes;
    for (int i = 0; i < chunk->directories.size(); ++i) {
        nodes.append(m_directories->findOrCreateTreePath(chunk->directories.at(i)));
        m_directories->addFiles(nodes.last(), chunk->files.at(i));
    }
    RowOrder fresh;
    for (int i = 0; i < static_cast<int>(chunk->rows.size()); ++i)
        fresh.push_back(totalCount() + i);
    m_rows.add(chunk, nodes);
    m_checked.resize(size_t(totalCount()), 0);
    sortRows(m_rows, ChanceColumn, Qt::DescendingOrder, &fresh);
    mergeByScore(m_rows, fresh, &m_order);
    const RowTest test(m_filter, m_directories->nodesBelow(m_filter.directory), m_checked);
    const auto hidden = [this, &test](int arrival) {
        return !test.accepts(m_rows, arrival);
    };
    fresh.erase(std::remove_if(fresh.begin(), fresh.end(), hidden), fresh.end());
    insertVisible(fresh);
    m_directories->publish();
    emit changeEnds(Change::Grown);
}

void ScanResultsModel::insertVisible(const RowOrder &sorted)
{
    if (sorted.empty())
        return;
    // Told in two steps that views understand: rows come at the end, then all take their places.
    const int first = visibleCount();
    beginInsertRows(QModelIndex(), first, first + static_cast<int>(sorted.size()) - 1);
    RowOrder merged = m_visible;
    m_visible.insert(m_visible.end(), sorted.begin(), sorted.end());
    endInsertRows();
    if (first == 0)
        return;
    mergeByScore(m_rows, sorted, &merged);
    emit layoutAboutToBeChanged({}, VerticalSortHint);
    const Places places = persistentPlaces();
    m_visible.swap(merged);
    movePersistent(places);
    emit layoutChanged({}, VerticalSortHint);
}

void ScanResultsModel::replace(const QJsonArray &files)
{
    m_sortColumn = ChanceColumn;
    m_sortOrder = Qt::DescendingOrder;
    m_queued.clear();
    m_reader = std::make_shared<RowReader>();
    ArrangeJob job = jobOfNow();
    job.checkedIds = checkedIds();
    job.rows = RowSet();
    job.order.clear();
    job.checked.clear();
    bring(std::move(job), files);
}

ArrangeJob ScanResultsModel::jobOfNow() const
{
    ArrangeJob job;
    job.rows = m_rows;
    job.order = m_order;
    job.checked = m_checked;
    job.isSorted = isOrdered();
    job.column = m_sortColumn;
    job.direction = m_sortOrder;
    job.filter = m_filter;
    job.below = m_directories->nodesBelow(m_filter.directory);
    return job;
}

void ScanResultsModel::bring(ArrangeJob job, const QJsonArray &files)
{
    job.brings = true;
    job.files.append(files);
    job.reader = m_reader;
    job.directories = m_directories->emptyNodes();
    job.directory = m_directories->pathOf(m_filter.directory);
    if (files.size() <= kDirectFiles && totalCount() <= kDirectRows) {
        ++m_generation;
        m_isBringing = false;
        m_isOutdated = false;
        setArranging(false);
        apply(arrange(std::move(job)), Change::Replaced);
        return;
    }
    m_isOutdated = false;
    start(std::move(job), Change::Replaced);
    m_isBringing = true;
}

void ScanResultsModel::rearrange(Change change)
{
    if (m_isBringing) {
        m_isOutdated = true;
        return;
    }
    if (totalCount() <= kDirectRows)
        apply(arrange(jobOfNow()), change);
    else
        start(jobOfNow(), change);
}

void ScanResultsModel::start(ArrangeJob job, Change change)
{
    const int generation = ++m_generation;
    setArranging(true);
    // Behind a pointer nothing is copied, so the texts of the source go as they are read.
    auto shared = std::make_shared<ArrangeJob>(std::move(job));
    core::runInPool(
        this, [shared] { return std::make_shared<const Arrangement>(arrange(std::move(*shared))); },
        [this, generation, change](const std::shared_ptr<const Arrangement> &done) {
            if (generation == m_generation)
                land(*done, change);
        });
}

void ScanResultsModel::land(const Arrangement &done, Change change)
{
    m_isBringing = false;
    apply(done, change);
    setArranging(false);
    if (m_isOutdated) {
        m_isOutdated = false;
        m_filterIsNew = true;
        rearrange(Change::Filtered);
    }
    appendQueued();
}

void ScanResultsModel::appendQueued()
{
    // One at a time, so that the window lives between them.
    if (m_queued.isEmpty() || m_isArranging)
        return;
    const QJsonArray files = m_queued.takeFirst();
    QVector<QJsonArray> others;
    others.swap(m_queued);
    append(files);
    m_queued = others;
    QMetaObject::invokeMethod(this, &ScanResultsModel::appendQueued, Qt::QueuedConnection);
}

void ScanResultsModel::apply(const Arrangement &done, Change change)
{
    emit changeBegins(change);
    const bool onlyMoves =
        change == Change::Sorted && !m_filterIsNew && done.visible.size() == m_visible.size();
    if (onlyMoves) {
        emit layoutAboutToBeChanged({}, VerticalSortHint);
        const Places places = persistentPlaces();
        m_order = done.order;
        m_visible = done.visible;
        movePersistent(places);
        emit layoutChanged({}, VerticalSortHint);
    } else {
        beginResetModel();
        takeRows(done);
        endResetModel();
    }
    m_filterIsNew = m_filterIsNew && m_isOutdated;
    m_orderedColumn = done.brings ? ChanceColumn : m_sortColumn;
    m_orderedOrder = done.brings ? Qt::DescendingOrder : m_sortOrder;
    emit changeEnds(change);
    emit checkedChanged();
}

void ScanResultsModel::takeRows(const Arrangement &done)
{
    m_order = done.order;
    m_visible = done.visible;
    if (done.brings) {
        m_rows = done.rows;
        m_checked = done.checked;
        applyTickChanges();
        m_directories->adopt(done.directories);
        m_filter.directory = done.directory;
    }
    countChecked();
}

void ScanResultsModel::applyTickChanges()
{
    for (size_t arrival = 0; !m_newTicks.isEmpty() && arrival < m_checked.size(); ++arrival) {
        const auto tick = m_newTicks.constFind(m_rows.rows[arrival]->fileId);
        if (tick != m_newTicks.constEnd())
            m_checked[arrival] = *tick ? 1 : 0;
    }
    m_newTicks.clear();
}

void ScanResultsModel::countChecked()
{
    m_checkedCount = static_cast<int>(std::count(m_checked.begin(), m_checked.end(), 1));
    m_visibleChecked = static_cast<int>(std::count_if(
        m_visible.begin(), m_visible.end(), [this](int arrival) { return isChecked(arrival); }));
}

void ScanResultsModel::setArranging(bool isArranging)
{
    if (m_isArranging == isArranging)
        return;
    m_isArranging = isArranging;
    emit arrangingChanged();
}

void ScanResultsModel::setFilter(const ResultFilter &filter)
{
    m_filter = filter;
    m_filterIsNew = true;
    rearrange(Change::Filtered);
}

void ScanResultsModel::sort(int column, Qt::SortOrder order)
{
    const bool sortable = column == NameColumn || (column >= SizeColumn && column < ColumnCount);
    if (!sortable || (column == m_sortColumn && order == m_sortOrder))
        return;
    m_sortColumn = column;
    m_sortOrder = order;
    rearrange(Change::Sorted);
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
    std::vector<int> rows(size_t(totalCount()), -1);
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
    const auto &rows = m_rows.rows;
    const auto found = std::find_if(
        rows.begin(), rows.end(), [&fileId](const FoundRow *row) { return row->fileId == fileId; });
    return found == rows.end() ? -1 : static_cast<int>(found - rows.begin());
}

const FoundRow &ScanResultsModel::row(const QModelIndex &index) const
{
    return m_rows.at(arrivalOf(index));
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
