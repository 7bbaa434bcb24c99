#pragma once

#include "analyzer/duplicate_scanner.h"

#include <QVector>
#include <queue>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

/// The comparison of buckets[first, last), shared by any number of threads that call work(). A
/// thread takes a few files at a time, whatever bucket they are of, and then whole contents, those
/// with most to read first: so the threads end at about the same time. What is found does not
/// depend on their number.
class DuplicateSearch
{
public:
    using Bucket = DuplicateScanner::Bucket;

    /// `buckets` must outlive the search.
    DuplicateSearch(const QList<Bucket> &buckets, int first, int last,
                    const DuplicateScanner::ScanOptions &options,
                    const DuplicateScanner::StopFunction &shouldStop);
    /// To be called when all threads have left.
    ~DuplicateSearch();

    /// Takes part until all is done or a stop ends it; calls `afterTask`, if any, in between.
    void work(const std::function<void()> &afterTask = nullptr);
    /// True if all is done within `limit`. Takes no part.
    bool waitFor(std::chrono::milliseconds limit);
    /// Threads inside work().
    int workers() const;
    int finishedBuckets() const;
    /// Works out result() on the calling thread and keeps it under `chunk`.
    void keepResult(int chunk, int first, int last);
    DuplicateScanner::PartialResult keptResult(int chunk) const;
    /// Groups of the finished buckets of [first, last), in the order of the buckets. To be called
    /// when all is done.
    DuplicateScanner::PartialResult result(int first, int last) const;

private:
    /// What is made of each path or file, each on the survivors of the one before.
    enum class Stage { identity, partial, tail, full };

    struct Item
    {
        int file;       // index of a path in stage identity, of a physical file afterwards
        int group;      // only items of one group are compared
        QByteArray key; // equal keys survive together; empty drops the item
    };

    struct Group
    {
        QByteArray key;
        QVector<int> files;
    };

    struct State
    {
        Stage stage = Stage::identity;
        std::vector<Item> items;
        int pending = 0;                            // items without a key
        std::vector<core::FileIdentity> identities; // of the paths; empty after stage identity
        QVector<DuplicateScanner::PhysicalFileGroup> files;
        QVector<Group> found;
    };

    struct Task
    {
        int bucket;
        int first;
        int last;
    };

    /// The files of one group, which are compared as a whole.
    struct WholeFiles
    {
        qint64 bytes; // of all of them
        Task task;
        bool operator<(const WholeFiles &other) const
        {
            return bytes != other.bytes ? bytes < other.bytes : task.bucket > other.task.bucket;
        }
    };

    bool stopWanted();
    bool isDone() const;
    bool take(Task *task);
    bool takeWaiting(Task *task);
    void finish(const Task &task);
    void runTask(const Task &task);
    void compareContents(const Task &task);
    QByteArray keyOf(int bucket, int index);
    void advance(int bucket);
    void identify(int bucket, const QVector<Group> &groups);
    void enqueue(int bucket);
    void enqueueWholeFiles(int bucket);
    static void keepDuplicates(QVector<Group> *groups);
    static QVector<Group> grouped(const std::vector<Item> &items);
    static std::vector<Item> itemsOf(const QVector<Group> &groups);
    QVariantMap groupMap(int bucket, const Group &group) const;
    qint64 sizeOf(int bucket) const { return m_buckets.at(bucket).first; }
    State &stateOf(int bucket) { return m_states[size_t(bucket - m_first)]; }

    const QList<Bucket> &m_buckets;
    const int m_first;
    const int m_last;
    const DuplicateScanner::ScanOptions m_options;
    const DuplicateScanner::StopFunction m_shouldStop;

    mutable std::mutex m_mutex; // guards all below, apart from states that a task works on
    std::condition_variable m_changed;
    std::vector<State> m_states;
    std::deque<Task> m_tasks;
    std::priority_queue<WholeFiles> m_wholeFiles;
    QHash<int, DuplicateScanner::PartialResult> m_results; // by chunk
    int m_nextBucket;
    int m_running = 0;
    int m_workers = 0;
    int m_finished = 0;
    std::atomic<bool> m_stopped{false};
};
