#pragma once

#include "vaultd/keep/vaultkeeper.h"
#include "vaultd/vaultchanges.h"

#include <atomic>

namespace services::vaultd {

/// Makes lasting what a keeper has taken, and keeps up with it: records and the index, what has to
/// be let go since the deletion failed, links that become root's, files that were replaced. For the
/// vault's thread.
class Recorder
{
public:
    /// `stop` ends long work between two files, from any thread; the rest is left to the next
    /// process.
    Recorder(const VaultLayout &layout, VaultIndex &index, const std::atomic<bool> &stop);

    /// One round, with the vault held. True if there is something to come back for.
    bool run(VaultKeeper &keeper, VaultChanges *changes);
    /// Seals some of what can be sealed now. Each call goes on after the files of the last one,
    /// until all were looked at; those in use come again in the next pass.
    void sealSome(qint64 copyLimit);
    /// True while a pass has files left to look at.
    bool isAmidPass() const { return m_sealedUpTo > 0; }
    /// True while contents are left that somebody could write to.
    bool hasUnsealed() const { return m_hasUnsealed; }
    void expectUnsealed() { m_hasUnsealed = true; }

private:
    enum class Verdict { Wait, List, Drop };
    struct Recent
    {
        QString id;
        QByteArray path;
        qint64 sinceMs;
    };
    /// What becomes of a group of files.
    struct Group
    {
        QVector<IndexedFile> added;
        QStringList over; ///< Recorded or let go.
        QVector<Recent> recent;
        bool mustComeBack = false;
    };

    void settle(const KeptFile &kept, Reserve &reserve, Group *group) const;
    bool publish(const Group &group, VaultKeeper &keeper, VaultChanges *changes);
    Verdict verdictOn(const KeptFile &kept, const VaultLayout &layout) const;
    bool record(const KeptFile &kept, const VaultLayout &layout, Reserve &reserve,
                IndexedFile *indexed) const;
    void markReplaced();
    bool sealOne(const VaultFile &file, qint64 copyLimit);

    VaultLayout m_layout;
    VaultIndex &m_index;
    const std::atomic<bool> &m_stop;
    QVector<Recent> m_recent; ///< Whose name may come back.
    bool m_hasUnsealed = false;
    bool m_wasBusy = false;  ///< In this pass.
    qint64 m_sealedUpTo = 0; ///< The index's number of the last file of this pass; 0: none yet.
};

/// The layout of the vault that a file is in, opened; *error if that is not there now.
[[nodiscard]] bool layoutOf(const VaultFile &file, const VaultLayout &home, VaultLayout *layout,
                            QString *error);

} // namespace services::vaultd
