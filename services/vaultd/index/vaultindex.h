#pragma once

#include "vaultd/index/sqlite.h"
#include "vaultd/vaultfile.h"

#include <QSet>
#include <QStringList>
#include <QVector>

#include <functional>

namespace services::vaultd {

/// A file of the vault with what its content is like, as the index holds it.
struct IndexedFile
{
    VaultFile file;
    struct stat content = {};
    quint64 originalInode = 0; ///< Of the file before it was kept.
    bool isSealed = true;      ///< Nobody but root can write to the content.
};

/// What a vault holds, in a file outside of it: so that a list or a start need not read a record
/// for each. Everything in it comes from the records, and it is made anew from them whenever it is
/// missing or damaged. One thread at a time; readers with a connection of their own may run beside.
class VaultIndex
{
public:
    explicit VaultIndex(const QString &stateDir);

    static QString pathIn(const QString &stateDir);

    /// Opens the file for writing, or replaces one that cannot be used. *error if even that fails.
    [[nodiscard]] bool open(QString *error);
    /// As open(), only for reading; false while there is none.
    [[nodiscard]] bool openForReading();

    /// All of it, or nothing. Files that are in the index are replaced.
    [[nodiscard]] bool change(const QStringList &removed, const QVector<IndexedFile> &added,
                              QString *error);
    [[nodiscard]] bool setSealed(const QStringList &ids);
    [[nodiscard]] bool setReplaced(const QString &id);

    bool contains(const QString &id) const;
    [[nodiscard]] bool find(const QString &id, VaultFile *file) const;
    /// Whether a file under that path and inode was kept in this state.
    bool holds(const struct stat &file, const QByteArray &path) const;
    /// All ids of one vault; of the home's if `vaultParent` is empty.
    QSet<QString> ids(const QByteArray &vaultParent) const;
    QStringList allIds() const;
    /// The parents of all vaults but the home's.
    QSet<QByteArray> vaults() const;
    QVector<VaultFile> files() const;
    /// In the order of numbers, those after *number, which becomes that of the last one given.
    QVector<VaultFile> unsealed(qint64 *number, int limit) const;

    /// The page of what matches, newest first, and how many match in all.
    QVector<VaultFile> page(int limit, int offset, const QString &filter, int *totalCount) const;
    int count() const { return int(total("count")); }
    /// Bytes.
    qint64 usedBytes() const { return total("bytes"); }

    /// Gives files in the order in which they have to go, until `visit` returns false: those kept
    /// at or before `oldest` (seconds since the epoch), then those that were replaced, then the
    /// rest, oldest first each.
    void visitForExpiry(qint64 oldest, const std::function<bool(const VaultFile &)> &visit) const;

    /// What the records' folder looked like when the index last agreed with it.
    QByteArray stamp() const;
    [[nodiscard]] bool setStamp(const QByteArray &stamp);

private:
    QVector<VaultFile> matches(int limit, int offset, const QByteArray &folded,
                               int *totalCount) const;
    qint64 passSpans(bool isFromEnd, int *left) const;
    qint64 total(const char *name) const;
    bool isUsable();
    bool create();

    QString m_path;
    Sqlite m_db;
};

} // namespace services::vaultd
