#pragma once

#include "core/descriptor.h"
#include "vaultd/vaultfile.h"

#include <QStringList>
#include <QVector>

namespace services::vaultd {

/// What was kept and has no lasting record yet: one line a file, appended before the content is
/// taken, so that a content never stands in a vault that nothing is known of. One flush a group
/// makes all its lines durable. Not thread-safe.
class KeepLog
{
public:
    explicit KeepLog(const QString &stateDir);

    /// Opens the log for appending. Returns 0 or an errno value, as all of these.
    [[nodiscard]] int open();
    [[nodiscard]] int note(const VaultFile &file);
    [[nodiscard]] int forget(const QString &id);
    /// A descriptor of the log for the caller, who may wait for the medium with it.
    int duplicate() const;
    qint64 size() const { return m_size; }
    /// The lines so far become the former log, and the new one begins with these files.
    [[nodiscard]] int restart(const QVector<VaultFile> &files);
    /// Once everything of the former log has lasting records.
    void dropFormer();

    /// The files noted and not forgotten, in order; broken lines are left out.
    QVector<VaultFile> read() const;

private:
    int append(const QByteArray &line);

    QByteArray m_path;
    core::Descriptor m_file{-1};
    qint64 m_size = 0; ///< Bytes.
};

} // namespace services::vaultd
