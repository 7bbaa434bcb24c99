#pragma once

#include "vaultd/restore.h"
#include "vaultd/vaultconfig.h"

#include <QHash>
#include <QSet>
#include <QVector>

namespace services {
namespace vaultd {

/// What a piece of work has changed in the list of files.
struct VaultChanges
{
    // In this order: a file may go and come back, or come and have to go.
    QStringList removed;
    QVector<VaultFile> added;
    QStringList expired;

    bool isEmpty() const { return removed.isEmpty() && added.isEmpty() && expired.isEmpty(); }
};

/// The files of a vault: the list of them, and the work that takes them out. One thread; other
/// processes may work on the same vault, so the list is what it was at the last refresh.
class VaultStore
{
public:
    /// Journals stand in `stateDir`, which exists. `stop` ends long work early, from any thread.
    VaultStore(const VaultLayout &layout, const QString &stateDir, const std::atomic<bool> &stop);

    /// Settles what a crash has left behind and reads the list. Once, before anything else.
    [[nodiscard]] bool open(QString *error);
    /// Takes over what others have changed in the vault, and repairs it:
    /// - half-written contents and records are removed;
    /// - a record without content is dropped;
    /// - a content whose original is still in place, since the move did not end, is dropped;
    /// - a content without a record gets one, under a stand-in name.
    /// Records that are no records, and contents that are no plain files, are left alone and not
    /// listed. Nothing outside the vault is written.
    [[nodiscard]] bool refresh(VaultChanges *changes, QString *error);

    QVector<VaultFile> files() const;

    /// As Restorer::restore().
    [[nodiscard]] bool restore(const QString &id, const QString &targetDir, QString *placed,
                               VaultChanges *changes, QString *error);
    /// Removes the files for good. *failures: why by id, for those that are still there.
    void remove(const QStringList &ids, VaultChanges *changes, QHash<QString, QString> *failures);
    /// Removes what exceeds the limits.
    void expire(const VaultConfig &limits, qint64 now, qint64 freeBytes, VaultChanges *changes);

private:
    using Ids = QSet<QString>;

    bool list(Ids *records, Ids *contents, QString *error);
    void removeUnfinished(const QString &dir, const QStringList &names, const QString &suffix);
    void readNew(const QString &id, const Ids &contents, VaultChanges *changes);
    void adopt(const QString &id, VaultChanges *changes);
    void drop(const QString &id);
    void add(VaultFile file, const struct stat &content, VaultChanges *changes);
    void skip(const QString &id, const QString &why);

    VaultLayout m_layout;
    Restorer m_restorer;
    const std::atomic<bool> &m_stop;
    QHash<QString, VaultFile> m_files;
    Ids m_skipped; ///< In the vault, but not fit to be listed; told once.
};

} // namespace vaultd
} // namespace services
