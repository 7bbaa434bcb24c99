#include "analyzer/listingqueue.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

/// Directories known ahead of the owner's.
constexpr std::size_t kLength = 64;
/// Entries handed over at a time, so that a huge directory is neither held nor waited for as a
/// whole.
constexpr std::size_t kEntriesPerBlock = 1024;

} // namespace

ListingQueue::ListingQueue(std::function<bool()> shouldStop)
    : m_shouldStop(std::move(shouldStop))
{}

/// The lock orders all that the second thread did before the end of its data.
ListingQueue::~ListingQueue()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
}

bool ListingQueue::hasRoom() const
{
    return m_jobs.size() < kLength;
}

void ListingQueue::add(const QByteArray &path, bool isRoot)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_jobs.push_back({path, isRoot, State::waiting, {}});
    }
    m_changed.notify_all();
}

bool ListingQueue::takeFirst(const EntryFunction &onEntry)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    Job &job = m_jobs.front();
    bool goOn = true;
    if (job.state == State::waiting) {
        job.state = State::taken;
        lock.unlock();
        goOn = listDirectory(job.path, job.isRoot, m_shouldStop, onEntry);
        lock.lock();
    } else {
        while (!passOnBlocks(&job, &lock, onEntry))
            helpOrWait(job, &lock);
        goOn = !m_shouldStop();
    }
    m_jobs.pop_front();
    return goOn;
}

/// True if these were the last entries. Leaves the lock for the time of the calls.
bool ListingQueue::passOnBlocks(Job *job, std::unique_lock<std::mutex> *lock,
                                const EntryFunction &onEntry)
{
    std::vector<Block> blocks;
    blocks.swap(job->blocks);
    const bool done = job->state == State::done;
    lock->unlock();
    for (const Block &block : blocks)
        passOn(block, onEntry);
    lock->lock();
    return done;
}

/// While the second thread lists what the owner needs next, the owner lists what lies behind it.
void ListingQueue::helpOrWait(const Job &first, std::unique_lock<std::mutex> *lock)
{
    if (!first.blocks.empty() || first.state == State::done)
        return;
    Job *next = nextWaiting();
    if (!next) {
        m_changed.wait(*lock,
                       [&first] { return !first.blocks.empty() || first.state == State::done; });
        return;
    }
    next->state = State::taken;
    lock->unlock();
    listAhead(next);
    lock->lock();
}

/// The first directory is left to the owner, who is about to take it.
ListingQueue::Job *ListingQueue::nextWaiting()
{
    const auto job = std::find_if(m_jobs.begin(), m_jobs.end(), [this](const Job &each) {
        return each.state == State::waiting && &each != &m_jobs.front();
    });
    return job == m_jobs.end() ? nullptr : &*job;
}

void ListingQueue::help()
{
    for (;;) {
        Job *job = nullptr;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_changed.wait(lock, [&] { return m_isFinished || (job = nextWaiting()) != nullptr; });
            if (m_isFinished)
                return;
            job->state = State::taken;
        }
        listAhead(job);
    }
}

void ListingQueue::listAhead(Job *job)
{
    Block block;
    listDirectory(job->path, job->isRoot, m_shouldStop, [&](const DirectoryEntry &entry) {
        block.entries.push_back(entry);
        block.nameOffsets.push_back(std::size_t(block.names.size()));
        block.names.append(entry.name, int(std::strlen(entry.name)) + 1);
        if (block.entries.size() == kEntriesPerBlock)
            hand(job, &block, State::taken);
    });
    hand(job, &block, State::done);
}

void ListingQueue::hand(Job *job, Block *block, State state)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        job->blocks.push_back(std::move(*block));
        job->state = state;
    }
    *block = Block();
    m_changed.notify_all();
}

void ListingQueue::passOn(const Block &block, const EntryFunction &onEntry)
{
    for (std::size_t i = 0; i < block.entries.size(); ++i) {
        DirectoryEntry entry = block.entries[i];
        entry.name = block.names.constData() + block.nameOffsets[i];
        onEntry(entry);
    }
}

void ListingQueue::finish()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isFinished = true;
    }
    m_changed.notify_all();
}
