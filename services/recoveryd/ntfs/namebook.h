#pragma once

#include "recoveryd/ntfs/filefacts.h"
#include "recoveryd/ntfs/foldertree.h"
#include "recoveryd/ntfs/recyclebin.h"

namespace services::recoveryd::ntfs {

/// Where a file was, as far as it is known.
struct Place
{
    Finding finding; ///< Name, folder and deletion time only.
    bool isSystem = false;
    /// The name and all of the path are known, and nothing found later can change them.
    bool isSettled = false;
};

/// Names and places of the files of one life of a volume, from all that still speaks of them. One
/// thread.
class NameBook
{
public:
    FolderTree &folders() { return m_folders; }

    /// A directory's own record.
    void addDirectory(const Record &record, const FileFacts &facts);
    /// A name out of an index or a journal. Those of files are kept only if they were asked for.
    void addRemains(quint64 reference, const FileName &name, quint64 time);
    void addDeletion(quint64 reference, qint64 deletedMs);
    /// Contents of a "$I" file in the directory `parent`.
    void addRecycleInfo(quint64 parent, const QByteArray &name, const QByteArray &contents);
    /// Makes addRemains() keep the names of the file whose record this is.
    void askFor(const Record &record);
    bool isAskedForFiles() const { return !m_asked.isEmpty(); }
    /// To be called before the last placeOf(): all "$I" files are known.
    void finishRecycleBin();

    Place placeOf(const Record &record, const FileFacts &facts);

private:
    struct Remains
    {
        FileName name;
        quint64 time = 0;
    };
    struct RecycleInfo
    {
        quint64 parent = 0;
        QByteArray name;
        QByteArray contents;
    };

    const FileName *bestNameOf(const FileFacts &facts);
    const FileName *remainsOf(const Record &record) const;

    FolderTree m_folders;
    RecycleBin m_recycleBin;
    QVector<RecycleInfo> m_recycleInfos;
    bool m_isRecycleBinFinished = false;
    QHash<quint64, qint64> m_deletions;
    QSet<quint64> m_asked;
    QHash<quint64, Remains> m_remains;
};

/// Whether a driver gave the file this name on its way out: such a name says nothing to a user.
bool isTemporaryName(const QByteArray &name);

} // namespace services::recoveryd::ntfs
