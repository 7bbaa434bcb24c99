#pragma once

#include "vaultd/keep/vaultkeeper.h"
#include "vaultd/vaultchanges.h"

namespace services::vaultd {

/// Makes lasting what a keeper has taken, and keeps up with it: records and the index, what has to
/// be let go since the deletion failed, links that become root's, files that were replaced. For the
/// vault's thread.
class Recorder
{
public:
    Recorder(const VaultLayout &layout, VaultIndex &index);

    /// One round, with the vault held. True if there is something to come back for.
    bool run(VaultKeeper &keeper, VaultChanges *changes);
    /// Seals what can be sealed now.
    void sealAll(qint64 copyLimit);
    /// True while contents are left that somebody could write to.
    bool hasUnsealed() const { return m_hasUnsealed; }
    void expectUnsealed() { m_hasUnsealed = true; }

private:
    enum class Verdict { Wait, List, Drop };

    Verdict verdictOn(const KeptFile &kept, const VaultLayout &layout) const;
    bool record(const KeptFile &kept, const VaultLayout &layout, Reserve &reserve,
                IndexedFile *indexed) const;
    void markReplaced();
    bool sealOne(const VaultFile &file, qint64 copyLimit);

    VaultLayout m_layout;
    VaultIndex &m_index;
    struct Recent
    {
        QString id;
        QByteArray path;
        qint64 sinceMs;
    };
    QVector<Recent> m_recent; ///< Whose name may come back.
    bool m_hasUnsealed = false;
};

/// The layout of the vault that a file is in, opened; *error if that is not there now.
[[nodiscard]] bool layoutOf(const VaultFile &file, const VaultLayout &home, VaultLayout *layout,
                            QString *error);

} // namespace services::vaultd
