#pragma once

#include "vaultd/users/useridentity.h"
#include "vaultd/vaultlayout.h"

#include <atomic>

namespace services {

class OutputFile;

namespace vaultd {

/// Gives files of the vault back, with the rights of the vault's user: where the user may not
/// write, nothing is put. What it is about to do stands in a journal, one file outside the vault,
/// so that a restore that a crash cut short is undone or completed, and the content does not end up
/// under two names.
class Restorer
{
public:
    /// `journal`: path of a file of its own. `stop` ends the copy of a large file early.
    Restorer(const VaultLayout &layout, const QString &journal, const std::atomic<bool> &stop);

    /// Puts the file into an existing folder, or an empty `targetDir` means where it was, whose
    /// folders are made if they are missing. It gets its own name or, since nothing is ever
    /// overwritten, the next free "name (1).ext", with owner, permissions, attributes and times as
    /// they were; then it is taken out of the vault. On failure it is still in the vault. *placed:
    /// the path it got, for showing.
    [[nodiscard]] bool restore(const VaultFile &file, const QString &targetDir, QString *placed,
                               QString *error) const;

    /// To be called at the start, with the vault held: after it, an interrupted file is either in
    /// its folder or in the vault.
    void finishInterrupted() const;

private:
    /// A folder that is held open, whatever its name leads to by now.
    struct Target
    {
        QByteArray path; ///< As it was asked for.
        QString folder;  ///< For this process, while the descriptor is open.
        UserIdentity user;
    };

    [[nodiscard]] bool identify(qint64 recordUser, UserIdentity *user, QString *error) const;
    bool place(const VaultFile &file, const Target &target, QByteArray *name, QString *error) const;
    bool fill(const VaultFile &file, const Target &target, OutputFile *output,
              QString *error) const;
    bool note(const VaultFile &file, const Target &target, const QByteArray &name,
              QString *error) const;
    bool settle(const QString &id, const Target &target, const QByteArray &name) const;
    bool takeOut(const QString &id) const;
    void reclaim(const QString &id) const;
    void forgetNote() const;

    VaultLayout m_layout;
    QString m_journal;
    const std::atomic<bool> &m_stop;
};

/// Whether the vault's user may restore files into the folder; empty: where they were. *error says
/// in Chinese why not.
[[nodiscard]] bool checkTarget(const VaultLayout &layout, const QString &targetDir, QString *error);

} // namespace vaultd
} // namespace services
