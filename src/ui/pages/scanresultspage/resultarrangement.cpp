#include "ui/pages/scanresultspage/resultarrangement.h"

#include "ui/common/utils/filetypecategoryutils.h"
#include "ui/pages/scanresultspage/scanresultsmodel.h"

#include <algorithm>

using ui::common::utils::FileTypeCategoryUtils;

namespace scanresults {

namespace {

const QString kAll = QStringLiteral("all");

bool isCategory(const QString &key)
{
    // A key that is none reads as the label of all types.
    return FileTypeCategoryUtils::categoryLabelFromKey(key) !=
           FileTypeCategoryUtils::categoryLabelFromKey(kAll);
}

QString textKey(const FoundRow &row, int column)
{
    switch (column) {
    case ScanResultsModel::NameColumn:
        return row.name.toCaseFolded();
    case ScanResultsModel::TypeColumn:
        return row.type.toCaseFolded();
    case ScanResultsModel::PathColumn:
        return row.path().toCaseFolded();
    case ScanResultsModel::SourceColumn:
        return row.sourceWord;
    default:
        return row.label;
    }
}

qint64 numberKey(const FoundRow &row, int column)
{
    switch (column) {
    case ScanResultsModel::SizeColumn:
        return row.sizeKey.bytes;
    case ScanResultsModel::TimeColumn:
        return row.timeKey.msSinceEpoch;
    default:
        return row.chanceKey.score;
    }
}

bool isNumber(int column)
{
    return column == ScanResultsModel::SizeColumn || column == ScanResultsModel::TimeColumn ||
           column == ScanResultsModel::ChanceColumn;
}

template <typename Key, typename KeyOf>
void sortByKey(Qt::SortOrder direction, RowOrder *order, KeyOf keyOf)
{
    std::vector<std::pair<Key, int>> keys;
    keys.reserve(order->size());
    for (const int arrival : *order)
        keys.emplace_back(keyOf(arrival), arrival);
    const auto before = [direction](const auto &a, const auto &b) {
        return direction == Qt::AscendingOrder ? a.first < b.first : b.first < a.first;
    };
    std::stable_sort(keys.begin(), keys.end(), before);
    std::transform(keys.begin(), keys.end(), order->begin(),
                   [](const auto &key) { return key.second; });
}

void readFiles(ArrangeJob *job)
{
    DirectoryNodes &directories = job->directories;
    const std::vector<RowChunkPointer> chunks = std::move(job->rows.chunks);
    job->rows = RowSet();
    const auto add = [&directories, job](const RowChunkPointer &chunk) {
        QVector<int> nodes;
        nodes.reserve(chunk->directories.size());
        for (int i = 0; i < chunk->directories.size(); ++i) {
            nodes.append(directories.findOrCreateTreePath(chunk->directories.at(i)));
            directories.addFiles(nodes.last(), chunk->files.at(i));
        }
        job->rows.add(chunk, nodes);
    };
    for (const RowChunkPointer &chunk : chunks)
        add(chunk);
    for (QJsonArray &files : job->files)
        add(job->reader->read(&files));
    for (int arrival = static_cast<int>(job->order.size()); arrival < job->rows.count(); ++arrival)
        job->order.push_back(arrival);
    job->checked.resize(size_t(job->rows.count()), 0);
    job->filter.directory = directories.nodeOfPath(job->directory);
    job->below = directories.nodesBelow(job->filter.directory);
    job->isSorted = false;
}

void checkIds(ArrangeJob *job)
{
    if (job->checkedIds.isEmpty())
        return;
    QSet<QString> ids;
    ids.reserve(job->checkedIds.size());
    for (const QString &id : job->checkedIds)
        ids.insert(id);
    for (int arrival = 0; arrival < job->rows.count(); ++arrival) {
        if (ids.contains(job->rows.at(arrival).fileId))
            job->checked[size_t(arrival)] = 1;
    }
}

} // namespace

RowTest::RowTest(const ResultFilter &filter, std::vector<char> below, std::vector<char> checked)
    : m_filter(filter)
    , m_anyCategory(!isCategory(filter.category))
    , m_anySource(filter.source.isEmpty() || filter.source == kAll)
    , m_below(std::move(below))
    , m_checked(std::move(checked))
{}

bool RowTest::accepts(const RowSet &rows, int arrival) const
{
    const FoundRow &row = rows.at(arrival);
    if (!m_below.empty() && !m_below[size_t(rows.nodes[size_t(arrival)])])
        return false;
    if (m_filter.quick == ResultFilter::Checked && !m_checked[size_t(arrival)])
        return false;
    if (m_filter.quick == ResultFilter::Whole && !row.isWhole())
        return false;
    if (m_filter.deletedSinceMs != 0 && row.timeKey.msSinceEpoch < m_filter.deletedSinceMs)
        return false;
    if (!m_anyCategory && row.category != m_filter.category)
        return false;
    if (!m_anySource && row.source != m_filter.source)
        return false;
    return m_filter.text.isEmpty() || row.name.contains(m_filter.text, Qt::CaseInsensitive);
}

void sortRows(const RowSet &rows, int column, Qt::SortOrder direction, RowOrder *order)
{
    if (isNumber(column))
        sortByKey<qint64>(direction, order, [&rows, column](int arrival) {
            return numberKey(rows.at(arrival), column);
        });
    else
        sortByKey<QString>(direction, order, [&rows, column](int arrival) {
            return textKey(rows.at(arrival), column);
        });
}

void mergeByScore(const RowSet &rows, const RowOrder &sorted, RowOrder *order)
{
    // From the back, each block of old rows moves once. Searching the place of each new row takes
    // fewer comparisons than walking the old ones.
    const auto before = [&rows](int a, int b) {
        return rows.at(b).chanceKey < rows.at(a).chanceKey;
    };
    auto oldEnd = static_cast<RowOrder::difference_type>(order->size());
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

Arrangement arrange(ArrangeJob job)
{
    Arrangement done;
    if (job.brings)
        readFiles(&job);
    checkIds(&job);
    if (!job.isSorted)
        sortRows(job.rows, job.column, job.direction, &job.order);
    const RowTest test(job.filter, std::move(job.below), job.checked);
    for (const int arrival : job.order) {
        if (test.accepts(job.rows, arrival))
            done.visible.push_back(arrival);
    }
    done.rows = std::move(job.rows);
    done.order = std::move(job.order);
    done.checked = std::move(job.checked);
    done.brings = job.brings;
    done.directories = std::move(job.directories);
    done.directory = job.filter.directory;
    return done;
}

} // namespace scanresults
