#pragma once

#include "recoveryd/fat/filebook.h"

#include <deque>

namespace services::recoveryd::fat {

/// Directories still to be read. What exists comes first: a directory that was moved has its former
/// entry besides. One thread.
template <typename Folder>
class FolderQueue
{
public:
    void add(const Folder &folder)
    {
        (folder.life == Life::Live ? m_live : m_lost).push_back(folder);
    }

    /// Calls read(folder) for all, and for what it adds. False if the observer ended it.
    template <typename Read>
    [[nodiscard]] bool readAll(ScanObserver &observer, Read read)
    {
        while (!m_live.empty() || !m_lost.empty()) {
            if (!observer.mayGoOn())
                return false;
            std::deque<Folder> &queue = m_live.empty() ? m_lost : m_live;
            const Folder folder = queue.front();
            queue.pop_front();
            read(folder);
        }
        return true;
    }

private:
    std::deque<Folder> m_live;
    std::deque<Folder> m_lost;
};

} // namespace services::recoveryd::fat
