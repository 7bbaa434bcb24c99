#pragma once

#include "vaultd/vaultlayout.h"

#include <mutex>

namespace services::vaultd {

/// Space that the vault holds so that on a full disk a deletion can still be kept: names, a line of
/// the log, a record. Given back in pieces when something does not fit, and taken again once there
/// is room. Thread-safe.
class Reserve
{
public:
    static constexpr qint64 kBytes = 8 * 1024 * 1024;

    explicit Reserve(const VaultLayout &layout);

    /// Takes what is missing, if that leaves the file system as much again.
    void refill();
    /// Gives a piece back. False if there is none left.
    [[nodiscard]] bool release();

private:
    int openFile(int flags) const;

    VaultLayout m_layout;
    std::mutex m_mutex;
};

} // namespace services::vaultd
