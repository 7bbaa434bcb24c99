#pragma once

#include "recoveryd/scan/finding.h"
#include "recoveryd/xfs/directory.h"

#include <QHash>

#include <unordered_map>
#include <vector>

namespace services::recoveryd::xfs {

/// What is known about the folder of a file.
struct FolderPath
{
    QByteArray folder;
    Finding::Folder knowledge = Finding::Folder::Unknown;
};

/// When something was: log sequence numbers.
constexpr quint64 kEarliest = 1; ///< Before all that the log knows.
constexpr quint64 kNow = ~0ULL;  ///< As it stands in a directory that exists.

/// The names that inodes have and had, with when they were seen. An inode number is used again, so
/// that a name counts for the life of the number that it was seen in. One thread.
class NameBook
{
public:
    /// Stands for a directory of which only a block is known, until setOwner().
    static quint64 unknownOwner(qint64 offset) { return kIsBlock | quint64(offset); }

    /// The directory that paths begin at; 0: not known.
    void setRoot(quint64 root) { m_root = root; }
    /// An entry of `parent` as it stood at `lsn`; of a freed one, it was removed before.
    void add(quint64 parent, const DirectoryEntry &entry, quint64 lsn);
    /// The directory that the block of entries at `offset` belongs, or belonged, to.
    void setOwner(qint64 offset, quint64 directory);
    /// That the inode is in use as a directory.
    void setExisting(quint64 directory) { m_existing.insert(directory, true); }
    bool isExistingDirectory(quint64 number) const { return m_existing.contains(number); }
    /// Call after the last add(), and again after further ones, before the questions.
    void prepare();

    /// A stretch of an inode number's use; `end` is when it was freed, 0 if that is not known, and
    /// kNow if it is in use still.
    struct Life
    {
        quint64 number = 0;
        quint64 begin = 0;
        quint64 end = 0;
        quint8 type = kTypeUnknown;
        bool isNumberInUse = false; ///< By this life, or by a later one.
    };
    static constexpr quint8 kTypeUnknown = 0;

    /// Sets name and folder. False if no name is known.
    [[nodiscard]] bool place(const Life &life, Finding *finding);

    /// Numbers that entries point to, ascending; 32 bits where no more is left.
    std::vector<quint64> children() const;

private:
    static constexpr quint64 kIsBlock = 1ULL << 63;

    struct Name
    {
        quint64 child = 0;
        quint64 parent = 0;
        quint64 firstLive = 0; ///< 0: never seen in use.
        quint64 lastLive = 0;
        quint64 freed = 0; ///< Earliest time at which it was seen removed; 0: never.
        quint32 textAt = 0;
        quint8 length = 0;
        quint8 type = 0;
        bool isChildWhole = true;
    };
    QByteArray textOf(const Name &name) const;
    quint64 parentOf(const Name &name) const;
    const Name *choose(const Life &life) const;
    int rank(const Name &name, const Life &life, quint64 *nearness) const;
    FolderPath pathOf(quint64 directory, quint64 when);

    std::vector<Name> m_names;
    std::unordered_map<quint64, quint32> m_index; ///< By a hash of the entry.
    std::vector<quint32> m_byChild;
    QByteArray m_texts;
    QHash<quint64, bool> m_existing;
    QHash<quint64, FolderPath> m_paths; ///< Of existing directories.
    QHash<qint64, quint64> m_owners;
    quint64 m_root = 0;
};

} // namespace services::recoveryd::xfs
