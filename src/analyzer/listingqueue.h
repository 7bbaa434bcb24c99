#pragma once

#include "analyzer/directorylisting.h"

#include <QByteArray>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

/// Directories that are to be listed in order. The owner goes through them one by one; a second
/// thread lists some of those that lie ahead, since nearly all of the time goes to system calls.
/// The owner waits for no listing that was not begun, so the second thread may come late or never.
class ListingQueue
{
public:
    using EntryFunction = std::function<void(const DirectoryEntry &)>;

    /// `shouldStop` is asked on both threads.
    explicit ListingQueue(std::function<bool()> shouldStop);
    /// To be called when help() has returned.
    ~ListingQueue();

    bool hasRoom() const;
    void add(const QByteArray &path, bool isRoot);
    bool isEmpty() const { return m_jobs.empty(); }
    /// Passes on the entries of the first directory and removes it. False on a stop.
    bool takeFirst(const EntryFunction &onEntry);

    /// The second thread; returns after finish().
    void help();
    void finish();

private:
    enum class State { waiting, taken, done };

    /// Some entries; their names are offsets into `names`.
    struct Block
    {
        std::vector<DirectoryEntry> entries;
        std::vector<std::size_t> nameOffsets;
        QByteArray names;
    };

    struct Job
    {
        QByteArray path;
        bool isRoot;
        State state = State::waiting;
        std::vector<Block> blocks;
    };

    bool passOnBlocks(Job *job, std::unique_lock<std::mutex> *lock, const EntryFunction &onEntry);
    void helpOrWait(const Job &first, std::unique_lock<std::mutex> *lock);
    Job *nextWaiting();
    void listAhead(Job *job);
    void hand(Job *job, Block *block, State state);
    static void passOn(const Block &block, const EntryFunction &onEntry);

    const std::function<bool()> m_shouldStop;
    mutable std::mutex m_mutex; // guards all below; the owner alone changes the length
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;
    bool m_isFinished = false;
};
