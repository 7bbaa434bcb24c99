#pragma once

#include "recoveryd/ext/undelete/directoryblock.h"
#include "recoveryd/ext/undelete/inode.h"
#include "recoveryd/scan/hashindex.h"

namespace services::recoveryd::ext {

/// A block of a directory, and what tells which directory it is of.
struct NameOwner
{
    qint64 block = 0;
    quint32 self = 0;   ///< The directory's number, if the block or its finder tells it.
    quint32 parent = 0; ///< By "..".
    quint32 seed = 0;   ///< Of the directory's checksums, else 0.
};

/// The names that directories have or had, with the time at which they were seen. About 60 bytes a
/// name. One thread.
class NameBook
{
public:
    /// One name of an inode.
    struct Name
    {
        quint32 child = 0;
        quint32 owner = 0; ///< Index for owner().
        Order first = kAnyTime;
        Order last = kAnyTime;
        quint32 textAt = 0;
        int next = -1;
        quint8 length = 0;
        quint8 type = 0;
        bool isRemnant = false;
    };

    /// The number under which an owner's names are added; the same one for the same owner.
    quint32 addOwner(const NameOwner &owner);
    const NameOwner &owner(quint32 index) const { return m_owners[index]; }
    /// Visits the owners that are blocks of the directory.
    template <typename Visit>
    void forEachSelf(quint32 number, Visit visit) const
    {
        m_ownersBySelf.find(number, [&](int index) {
            if (m_owners[size_t(index - 1)].self == number)
                visit(m_owners[size_t(index - 1)]);
            return false;
        });
    }

    /// Remembers an entry as it was seen at a time.
    void add(quint32 owner, const Entry &entry, Order order);

    const Name &name(int index) const { return m_names[size_t(index)]; }
    QByteArray text(const Name &name) const;
    /// The first of a number's names, -1 if it has none; Name::next leads to the others.
    int namesOf(quint32 number) const;

private:
    int find(quint64 hash, quint32 owner, const Entry &entry) const;

    std::vector<NameOwner> m_owners;
    std::vector<Name> m_names;
    std::vector<char> m_texts;
    HashIndex m_ownersByHash; ///< Index plus one, as in the others.
    HashIndex m_ownersBySelf; ///< Only those with a parent.
    HashIndex m_namesByHash;
    HashIndex m_heads; ///< An index of m_firsts by child.
    std::vector<std::pair<quint32, int>> m_firsts;
};

} // namespace services::recoveryd::ext
