#pragma once

#include <QByteArray>
#include <QString>

#include <sys/stat.h>
#include <sys/types.h>

namespace services::vaultd {

/// A deletion that is about to happen, reported by the hook and already checked.
struct Deletion
{
    int file = -1;           ///< O_PATH descriptor of the file; stays the caller's.
    QByteArray path;         ///< Absolute path it had; bytes as they are, may be no UTF-8.
    QByteArray originalPath; ///< Where it was before it went to the trash; empty: `path`.
    uid_t peer = 0;          ///< Who deletes.
    bool isReplaced = false; ///< A rename over it rather than an unlink.
};

/// Keeps files before they are deleted, in the vault of one user. Thread-safe.
class Keeper
{
public:
    virtual ~Keeper() = default;

    /// Takes the content into the vault; *id names it from then on. When this returns true, the
    /// content and its record survive the end of this process, not yet a power failure.
    [[nodiscard]] virtual bool keep(const Deletion &deletion, QString *id, QString *error) = 0;
    /// The real call's result: the file is listed, or what was taken is let go. A kept file that
    /// nothing is told of is listed once its name is gone.
    virtual void settle(const QString &id, bool isDeleted) = 0;
    /// Whether the vault has this file under this path already, in the same state.
    virtual bool holds(const struct stat &file, const QByteArray &path) = 0;
};

} // namespace services::vaultd
