#pragma once

#include "vaultd/hook/protectionmap.h"
#include "vaultd/hook/trashindex.h"
#include "vaultd/users/useridentity.h"

#include <QHash>

#include <memory>
#include <mutex>
#include <set>
#include <utility>

namespace services::vaultd {

/// What is protected for all users at one moment. Not changed once it is shared.
struct ProtectionSnapshot
{
    QByteArray map; ///< As root sees it: that of everybody.
    QHash<uid_t, UserIdentity> owners;
    QList<std::shared_ptr<const TrashIndex>> trashes;
};

/// The current snapshot. Thread-safe.
class Protections
{
public:
    std::shared_ptr<const ProtectionSnapshot> current() const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_current;
    }
    void set(std::shared_ptr<const ProtectionSnapshot> snapshot)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_current = std::move(snapshot);
    }

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const ProtectionSnapshot> m_current;
};

/// The files that are being kept at the moment, so that the same deletion is not taken from the
/// spool as well. Thread-safe.
class FilesInHand
{
public:
    using File = std::pair<dev_t, ino_t>;

    void add(const File &file)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_files.insert(file);
    }
    void remove(const File &file)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_files.find(file);
        if (found != m_files.end())
            m_files.erase(found);
    }
    bool contains(const File &file) const
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_files.count(file) > 0;
    }

private:
    mutable std::mutex m_mutex;
    std::multiset<File> m_files;
};

} // namespace services::vaultd
