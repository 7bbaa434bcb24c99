#pragma once

#include "recoveryd/devices/range.h"
#include "vault/vaultlocations.h"

#include <QJsonArray>

#include <functional>
#include <memory>

namespace services {
namespace recoveryd {

/// The bytes of one protected file.
class VaultContent
{
public:
    virtual ~VaultContent() = default;

    /// Bytes.
    virtual qint64 size() const = 0;
    /// Where the file holds data; elsewhere it is zeros.
    virtual Ranges dataRanges() const = 0;
    /// Reads within one of these ranges.
    [[nodiscard]] virtual bool read(qint64 offset, char *to, qint64 length,
                                    QString *error) const = 0;
};

/// A vault that was found, in an image or below a mounted directory; only read. Used by one thread
/// at a time.
class FoundVault
{
public:
    using Stopped = std::function<bool()>;

    explicit FoundVault(vault::VaultLocation location)
        : m_location(std::move(location))
    {}
    virtual ~FoundVault() = default;

    /// Without the files. The parent directory tells vaults apart in all that the service offers:
    /// "/live_target/home/li" below a mounted directory, "/dev/image0p1:/home/li" in an image. It
    /// is what restores name the vault by.
    const vault::VaultLocation &location() const { return m_location; }
    /// The records whose content is there; those read so far once `isStopped` says so.
    virtual QJsonArray records(const Stopped &isStopped) const = 0;
    /// Null on failure.
    virtual std::unique_ptr<VaultContent> open(const QString &id, QString *error) const = 0;

private:
    vault::VaultLocation m_location;
};

using FoundVaults = QVector<std::shared_ptr<const FoundVault>>;

} // namespace recoveryd
} // namespace services
