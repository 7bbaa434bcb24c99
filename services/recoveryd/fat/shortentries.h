#pragma once

#include "recoveryd/fat/clustergrid.h"
#include "recoveryd/fat/directoryentry.h"

namespace services::recoveryd::fat {

constexpr int kSlot = 32; ///< Bytes of a directory entry.

/// Whether a directory begins here: with "." and "..". Gives the cluster of its own that it names,
/// and its parent's, 0 for the root.
[[nodiscard]] bool isDirectoryHead(const char *bytes, int length, quint32 *own, quint32 *parent);

/// Whether a slot can be an entry, in use or deleted, or a part of a long name.
bool isPlausibleSlot(const char *slot, const ClusterGrid &grid);

/// Whether the bytes, a cluster or a part of it, can be a directory's: every slot is an entry, an
/// unused one, or a part of a long name. For places of which nothing else is known.
bool looksLikeDirectory(const char *bytes, int length, const ClusterGrid &grid);

/// Joins the slots of a directory to entries. A deleted entry has lost its first letter, which a
/// long name's checksum gives back.
class ShortEntryReader
{
public:
    /// Takes the next slot of the directory. True if it completes an entry, see entry(). Volume
    /// labels, "." and ".." are none.
    [[nodiscard]] bool feed(const char *slot);
    const DirectoryEntry &entry() const { return m_entry; }
    /// Parts of a long name came last, whose entry has not come yet.
    bool isInsideName() const { return !m_parts.isEmpty(); }
    /// The entry's first cluster may have lost its high half: a deleted entry that has none.
    bool isHighHalfZero() const { return m_isHighHalfZero; }
    /// The slot that came last marks the end of the directory.
    bool isAtEnd() const { return m_isAtEnd; }

private:
    struct Part
    {
        quint8 order = 0;
        quint8 checksum = 0;
        QByteArray units; ///< UTF-16, little endian, 26 bytes.
    };

    QString longName(const char *slot, char *firstLetter) const;

    QVector<Part> m_parts;
    DirectoryEntry m_entry;
    bool m_isHighHalfZero = false;
    bool m_isAtEnd = false;
};

} // namespace services::recoveryd::fat
