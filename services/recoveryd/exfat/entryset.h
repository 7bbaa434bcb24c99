#pragma once

#include "recoveryd/fat/directoryentry.h"

namespace services::recoveryd::exfat {

constexpr int kSlot = 32; ///< Bytes of a directory entry.

/// Joins the slots of a directory to entry sets. A set is sure by its checksum, whether it is in
/// use or deleted.
class EntrySetReader
{
public:
    /// Takes the next slot. True if it completes a set, see entry().
    [[nodiscard]] bool feed(const char *slot);
    const fat::DirectoryEntry &entry() const { return m_entry; }
    /// A set has begun and not ended.
    bool isInsideSet() const { return !m_set.isEmpty(); }

private:
    [[nodiscard]] bool parse();
    bool isSound() const;

    QByteArray m_set;
    int m_expected = 0; ///< Slots.
    fat::DirectoryEntry m_entry;
};

/// Whether entry sets stand in the bytes, a cluster or its beginning.
bool hasEntrySets(const char *bytes, int length);
/// The same, but with anything before and between.
bool hasEntrySetAnywhere(const char *bytes, int length);
/// Whether they are of a root directory: with an allocation bitmap and an up-case table.
bool isRootDirectory(const char *bytes, int length);

} // namespace services::recoveryd::exfat
