#pragma once

#include "vaultd/index/vaultindex.h"
#include "vaultd/keep/recorder.h"
#include "vaultd/restore.h"
#include "vaultd/vaultchanges.h"
#include "vaultd/vaultconfig.h"

#include <QHash>
#include <QSet>
#include <QVector>

namespace services {
namespace vaultd {

/// The files of a vault: the list of them, and the work that takes them out. The vaults of other
/// file systems, as far as they are the same user's, count as parts of it. One thread at a time;
/// other processes may work on the same vault, so the list is what it was at the last refresh.
class VaultStore
{
public:
    /// Journals stand in `stateDir`, which exists. `stop` ends long work early, from any thread.
    VaultStore(const VaultLayout &layout, const QString &stateDir, const std::atomic<bool> &stop);

    /// Settles what a crash has left behind and reads the list. Once, before anything else. A large
    /// vault that does not agree with its index is looked through by the next refresh() only.
    [[nodiscard]] bool open(QString *error);
    /// Whose files wait to be recorded; null: nobody's. It must outlive the store.
    void setKeeper(VaultKeeper *keeper) { m_keeper = keeper; }
    /// Makes lasting what was kept; true if there is something to come back for.
    bool recordKept(VaultChanges *changes);
    /// Gives some of the links to root whose last writer is gone; true if there are others.
    bool seal();
    /// True if seal() has not come to all of them yet, so that it is worth calling at once.
    bool isAmidSeals() const { return m_recorder.isAmidPass(); }
    /// Takes over what others have changed in the vault, and repairs it:
    /// - half-written contents and records are removed;
    /// - a record without content is dropped;
    /// - a content whose original is still in place, since the move did not end, is dropped;
    /// - a content without a record gets one, under a stand-in name.
    /// Records that are no records, and contents that are no plain files, are left alone and not
    /// listed. Nothing outside the vault is written.
    [[nodiscard]] bool refresh(VaultChanges *changes, QString *error);

    QVector<VaultFile> files() const { return m_index.files(); }
    QStringList ids() const { return m_index.allIds(); }

    /// As Restorer::restore().
    [[nodiscard]] bool restore(const QString &id, const QString &targetDir, QString *placed,
                               VaultChanges *changes, QString *error);
    /// Removes the files for good. *failures: why by id, for those that are still there.
    void remove(const QStringList &ids, VaultChanges *changes, QHash<QString, QString> *failures);
    /// Removes what exceeds the limits.
    void expire(const VaultConfig &limits, qint64 now, qint64 freeBytes, VaultChanges *changes);

private:
    using Ids = QSet<QString>;
    /// One vault's part of a refresh.
    struct Look
    {
        VaultLayout layout;
        QByteArray parent; ///< Empty: the home's.
        Ids records;
        Ids contents;
        QVector<IndexedFile> added;
        QStringList removed;
    };

    bool reconcile(Look *look, VaultChanges *changes, QString *error);
    void reconcileMounts(VaultChanges *changes);
    bool publish(Look *look, VaultChanges *changes, QString *error);
    bool list(Look *look, QString *error);
    void removeUnfinished(const QString &dir, const QStringList &names, const QString &suffix);
    void readNew(const QString &id, Look *look, VaultChanges *changes);
    void adopt(const QString &id, Look *look, VaultChanges *changes);
    void drop(const VaultLayout &layout, const QString &id);
    void add(VaultFile file, const struct stat &content, Look *look, VaultChanges *changes);
    void skip(const QString &id, const QString &why);
    void forget(const QStringList &ids, VaultChanges *changes);
    int removeContent(const QString &id, VaultLayout *layout);
    QByteArray stampNow() const;
    void keepStamp();

    VaultLayout m_layout;
    QString m_stateDir;
    Restorer m_restorer;
    const std::atomic<bool> &m_stop;
    VaultIndex m_index;
    Recorder m_recorder;
    VaultKeeper *m_keeper = nullptr;
    QByteArray m_stamp; ///< Of the folders when the index last agreed with them; empty: never.
    Ids m_skipped;      ///< In a vault, but not fit to be listed; told once.
};

} // namespace vaultd
} // namespace services
