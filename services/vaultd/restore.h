#pragma once

#include "vaultd/vaultlayout.h"

#include <atomic>

namespace services {
namespace vaultd {

/// Gives files of the vault back. What it is about to do stands in a journal, one file outside the
/// vault, so that a restore that a crash cut short is undone or completed, and the content does not
/// end up under two names.
class Restorer
{
public:
    /// `journal`: path of a file of its own. `stop` ends the copy of a large file early.
    Restorer(const VaultLayout &layout, const QString &journal, const std::atomic<bool> &stop);

    /// Puts the file into an existing folder under its own name or, since nothing is ever
    /// overwritten, the next free "name (1).ext", and then takes it out of the vault. On failure
    /// the file is still in the vault. *placed: the path it got.
    [[nodiscard]] bool restore(const VaultFile &file, const QString &targetDir, QString *placed,
                               QString *error) const;

    /// To be called at the start, with the vault held: after it, an interrupted file is either in
    /// its folder or in the vault.
    void finishInterrupted() const;

private:
    bool place(const VaultFile &file, const QString &targetDir, QString *name,
               QString *error) const;
    bool note(const VaultFile &file, const QString &targetDir, const QString &name,
              QString *error) const;
    void forgetNote() const;

    VaultLayout m_layout;
    QString m_journal;
    const std::atomic<bool> &m_stop;
};

/// Whether files can be restored into the folder; *error says in Chinese why not.
[[nodiscard]] bool checkTarget(const VaultLayout &layout, const QString &targetDir, QString *error);

} // namespace vaultd
} // namespace services
