#include "analyzer/duplicatesearch.h"

#include "analyzer/samecontent.h"
#include "analyzer/saturating.h"
#include "analyzer/scanidentity.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <sys/stat.h>

namespace {

/// Paths or small reads taken at a time: few enough to share a bucket, many enough that the lock
/// does not count.
constexpr int kItemsPerTask = 16;

/// Paths with one key are one physical file.
QByteArray physicalKey(const QString &path, core::FileIdentity *identity)
{
    struct stat info;
    if (stat(QFile::encodeName(path).constData(), &info) == 0) {
        *identity = core::identityOf(info);
        return QByteArray::number(qulonglong(info.st_dev)) + ':' +
               QByteArray::number(qulonglong(info.st_ino));
    }
    const QFileInfo file(path);
    const QString canonical = file.canonicalFilePath();
    return QFile::encodeName(canonical.isEmpty() ? file.absoluteFilePath() : canonical);
}

} // namespace

DuplicateSearch::DuplicateSearch(const QList<Bucket> &buckets, int first, int last,
                                 const DuplicateScanner::ScanOptions &options,
                                 const DuplicateScanner::StopFunction &shouldStop)
    : m_buckets(buckets)
    , m_first(first)
    , m_last(std::max(first, last))
    , m_options(options)
    , m_shouldStop(shouldStop)
    , m_states(size_t(m_last - m_first))
    , m_nextBucket(first)
{}

/// The lock orders all that other threads did before the end of their data.
DuplicateSearch::~DuplicateSearch()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
}

bool DuplicateSearch::stopWanted()
{
    if (!m_stopped && m_shouldStop && m_shouldStop())
        m_stopped = true;
    return m_stopped;
}

bool DuplicateSearch::isDone() const
{
    const bool nothingLeft = m_tasks.empty() && m_wholeFiles.empty() && m_nextBucket >= m_last;
    return m_running == 0 && (nothingLeft || m_stopped);
}

void DuplicateSearch::work(const std::function<void()> &afterTask)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_workers;
    }
    Task task;
    while (take(&task)) {
        runTask(task);
        finish(task);
        if (afterTask)
            afterTask();
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    --m_workers;
}

bool DuplicateSearch::waitFor(std::chrono::milliseconds limit)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_until(lock, std::chrono::system_clock::now() + limit,
                                [this] { return isDone(); });
}

int DuplicateSearch::workers() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_workers;
}

int DuplicateSearch::finishedBuckets() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_finished;
}

/// Waits while other threads may yet produce work: they are running, so this cannot last for ever.
bool DuplicateSearch::take(Task *task)
{
    const bool stop = stopWanted();
    std::unique_lock<std::mutex> lock(m_mutex);
    if (stop)
        m_changed.notify_all();
    bool taken = false;
    m_changed.wait(lock, [&] {
        taken = !m_stopped && takeWaiting(task);
        return taken || m_stopped || isDone();
    });
    if (taken)
        ++m_running;
    return taken;
}

/// The cheap stages go first: whole files can only be taken largest first when all are known.
bool DuplicateSearch::takeWaiting(Task *task)
{
    while (m_tasks.empty() && m_nextBucket < m_last) {
        const int bucket = m_nextBucket++;
        State &state = stateOf(bucket);
        const int paths = m_buckets.at(bucket).second.size();
        state.items.reserve(size_t(paths));
        for (int path = 0; path < paths; ++path)
            state.items.push_back({path, 0, {}});
        state.identities.resize(size_t(paths));
        if (paths == 0)
            ++m_finished;
        enqueue(bucket);
    }
    if (!m_tasks.empty()) {
        *task = m_tasks.front();
        m_tasks.pop_front();
        return true;
    }
    if (m_wholeFiles.empty())
        return false;
    *task = m_wholeFiles.top().task;
    m_wholeFiles.pop();
    return true;
}

void DuplicateSearch::enqueue(int bucket)
{
    State &state = stateOf(bucket);
    const int count = int(state.items.size());
    state.pending = count;
    if (state.stage == Stage::full)
        return enqueueWholeFiles(bucket);
    for (int first = 0; first < count; first += kItemsPerTask)
        m_tasks.push_back({bucket, first, std::min(first + kItemsPerTask, count)});
}

/// The items of one group lie one behind the other.
void DuplicateSearch::enqueueWholeFiles(int bucket)
{
    const std::vector<Item> &items = stateOf(bucket).items;
    const int count = int(items.size());
    for (int first = 0, last = 0; first < count; first = last) {
        while (last < count && items[size_t(last)].group == items[size_t(first)].group)
            ++last;
        m_wholeFiles.push({saturatingProduct(sizeOf(bucket), last - first), {bucket, first, last}});
    }
}

void DuplicateSearch::runTask(const Task &task)
{
    State &state = stateOf(task.bucket);
    if (state.stage == Stage::full)
        return compareContents(task);
    for (int i = task.first; i < task.last && !stopWanted(); ++i) {
        Item &item = state.items[size_t(i)];
        item.key = keyOf(task.bucket, item.file);
    }
}

QByteArray DuplicateSearch::keyOf(int bucket, int index)
{
    State &state = stateOf(bucket);
    if (state.stage == Stage::identity)
        return physicalKey(m_buckets.at(bucket).second.at(index), &state.identities[size_t(index)]);
    const DuplicateScanner::PhysicalFileGroup &file = state.files.at(index);
    return state.stage == Stage::partial
               ? DuplicateScanner::partialHash(file.path, &file.identity)
               : DuplicateScanner::tailHash(file.path, sizeOf(bucket), &file.identity);
}

/// Contents that differ stay apart even where their hashes agree: each set becomes a group, with
/// the index of its first item as its number.
void DuplicateSearch::compareContents(const Task &task)
{
    State &state = stateOf(task.bucket);
    std::vector<const DuplicateScanner::PhysicalFileGroup *> files;
    for (int i = task.first; i < task.last; ++i)
        files.push_back(&state.files.at(state.items[size_t(i)].file));
    SameContent comparison(files, [this] { return stopWanted(); });
    for (const SameContent::Set &set : comparison.sets()) {
        for (const int index : set.files) {
            Item &item = state.items[size_t(task.first + index)];
            item.group = task.first + set.files.front();
            item.key = set.hash;
        }
    }
}

/// The thread that ends a bucket's stage has the bucket to itself until its next tasks are queued.
void DuplicateSearch::finish(const Task &task)
{
    State &state = stateOf(task.bucket);
    const bool stop = stopWanted();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        state.pending -= task.last - task.first;
        if (stop || state.pending > 0) {
            --m_running;
            m_changed.notify_all();
            return;
        }
    }
    advance(task.bucket);
    const std::lock_guard<std::mutex> lock(m_mutex);
    --m_running;
    if (state.items.empty())
        ++m_finished;
    else
        enqueue(task.bucket);
    m_changed.notify_all();
}

void DuplicateSearch::advance(int bucket)
{
    State &state = stateOf(bucket);
    QVector<Group> groups = grouped(state.items);
    if (state.stage == Stage::identity)
        return identify(bucket, groups);
    keepDuplicates(&groups);
    const bool wholeFileKnown = sizeOf(bucket) <= DuplicateScanner::kPartSize;
    if (state.stage == Stage::full || wholeFileKnown)
        state.found = groups;
    state.items = state.found.isEmpty() ? itemsOf(groups) : std::vector<Item>();
    state.stage = state.stage == Stage::partial ? Stage::tail : Stage::full;
    if (groups.isEmpty())
        state.files.clear();
}

/// Files that are one on disk are no duplicates of each other.
void DuplicateSearch::identify(int bucket, const QVector<Group> &groups)
{
    State &state = stateOf(bucket);
    const QStringList &paths = m_buckets.at(bucket).second;
    state.items.clear();
    const std::vector<core::FileIdentity> identities = std::move(state.identities);
    if (groups.size() < 2)
        return;
    for (const Group &group : groups) {
        DuplicateScanner::PhysicalFileGroup file;
        file.path = paths.at(group.files.first());
        file.identity = identities[size_t(group.files.first())];
        for (int i = 1; i < group.files.size(); ++i)
            file.aliasPaths.append(paths.at(group.files.at(i)));
        state.items.push_back({state.files.size(), 0, {}});
        state.files.append(file);
    }
    state.stage = Stage::partial;
    if (m_options.byHash)
        return;
    for (Item &item : state.items)
        item.key = QFileInfo(state.files.at(item.file).path).fileName().toUtf8();
    state.found = grouped(state.items);
    keepDuplicates(&state.found);
    state.items.clear();
}

/// In the order in which each group's first file stands.
QVector<DuplicateSearch::Group> DuplicateSearch::grouped(const std::vector<Item> &items)
{
    QVector<Group> groups;
    QHash<QPair<int, QByteArray>, int> indexes;
    for (const Item &item : items) {
        if (item.key.isEmpty())
            continue;
        const auto known = indexes.constFind({item.group, item.key});
        if (known != indexes.constEnd()) {
            groups[*known].files.append(item.file);
            continue;
        }
        indexes.insert({item.group, item.key}, groups.size());
        groups.append({item.key, {item.file}});
    }
    return groups;
}

void DuplicateSearch::keepDuplicates(QVector<Group> *groups)
{
    const auto single = [](const Group &group) {
        return group.files.size() < 2;
    };
    groups->erase(std::remove_if(groups->begin(), groups->end(), single), groups->end());
}

std::vector<DuplicateSearch::Item> DuplicateSearch::itemsOf(const QVector<Group> &groups)
{
    std::vector<Item> items;
    for (int group = 0; group < groups.size(); ++group)
        for (const int file : groups.at(group).files)
            items.push_back({file, group, {}});
    return items;
}

void DuplicateSearch::keepResult(int chunk, int first, int last)
{
    const DuplicateScanner::PartialResult part = result(first, last);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_results.insert(chunk, part);
}

DuplicateScanner::PartialResult DuplicateSearch::keptResult(int chunk) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_results.value(chunk);
}

DuplicateScanner::PartialResult DuplicateSearch::result(int first, int last) const
{
    DuplicateScanner::PartialResult result;
    for (int bucket = first; bucket < last; ++bucket) {
        for (const Group &group : m_states[size_t(bucket - m_first)].found) {
            ++result.totalGroups;
            const qint64 reclaimable = saturatingProduct(sizeOf(bucket), group.files.size() - 1);
            result.totalReclaimable = saturatingSum(result.totalReclaimable, reclaimable);
            if (m_options.maximumGroups <= 0 || result.groups.size() < m_options.maximumGroups)
                result.groups.append(groupMap(bucket, group));
        }
    }
    return result;
}

QVariantMap DuplicateSearch::groupMap(int bucket, const Group &group) const
{
    const State &state = m_states[size_t(bucket - m_first)];
    QVariantList files;
    for (const int index : group.files) {
        const DuplicateScanner::PhysicalFileGroup &file = state.files.at(index);
        QVariantMap map;
        map.insert(QStringLiteral("path"), file.path);
        map.insert(QStringLiteral("modified"), QFileInfo(file.path).lastModified());
        map.insert(QStringLiteral("aliasPaths"), file.aliasPaths);
        map.insert(QStringLiteral("aliasCount"), file.aliasPaths.size());
        insertIdentity(file.identity, &map);
        files.append(map);
    }
    QVariantMap map;
    map.insert(QStringLiteral("size"), sizeOf(bucket));
    if (m_options.byHash)
        map.insert(QStringLiteral("hash"), QString::fromLatin1(group.key.toHex()));
    map.insert(QStringLiteral("files"), files);
    return map;
}
