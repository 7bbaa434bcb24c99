#pragma once

#include "recoveryd/ntfs/filename.h"
#include "recoveryd/scan/finding.h"

#include <QHash>
#include <QSet>

#include <functional>

namespace services::recoveryd::ntfs {

/// What is known about the folder of a file.
struct FolderPath
{
    QByteArray folder;
    Finding::Folder knowledge = Finding::Folder::Unknown;
    bool isSystem = false; ///< Below $Extend: no user's file.
};

/// The directories of one volume in all the lives of their records: the key is the reference with
/// its sequence number, so that a file never lands in a directory that took over the record of its
/// own. One thread.
class FolderTree
{
public:
    /// Makes record `number` known by add(), as far as it exists.
    using Loader = std::function<void(quint64 number)>;

    /// How sure a name is: what is worse never replaces what is better.
    enum class Trust : quint8 {
        Remains, ///< Index slack, journals.
        Record,  ///< The directory's own record.
    };

    void setLoader(const Loader &loader) { m_loader = loader; }
    /// Remembers that the directory `reference` has, or had until `time`, this name.
    void add(quint64 reference, const FileName &name, Trust trust, quint64 time);
    /// The same for a record as it stands: of a deleted one the sequence is one ahead of the
    /// references to it.
    void addRecord(quint64 number, quint16 sequence, bool isInUse, const FileName &name,
                   quint64 time);
    bool contains(quint64 reference) const { return m_nodes.contains(reference); }

    /// The path of the directory `reference`.
    FolderPath pathOf(quint64 reference);

private:
    struct Node
    {
        quint64 parent = 0;
        QByteArray name;
        quint64 time = 0;
        Trust trust = Trust::Remains;
    };

    const Node *find(quint64 reference);

    Loader m_loader;
    QHash<quint64, Node> m_nodes;
    QHash<quint64, FolderPath> m_paths; ///< Some of those asked for since the last add().
    QSet<quint64> m_asked;              ///< Numbers that the loader was asked for.
};

/// The reference that entries held before the record was deleted.
quint64 referenceBeforeDeletion(quint64 number, quint16 sequence);

} // namespace services::recoveryd::ntfs
