#pragma once

#include "vault/vaultlocations.h"

#include <QObject>

#include <atomic>
#include <memory>

namespace vaultbrowser {

/// Finds and reads the vaults on mounted partitions, on the global pool: a disk may be slow, and a
/// network drive gone. A new request takes the place of the one before of its kind, of which
/// nothing is told any more. Lives on the GUI thread.
class VaultLoader : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;
    ~VaultLoader() override;

    /// `mountsFile` has the form of /proc/mounts. Ends in found().
    void find(const QString &mountsFile);
    /// Ends in loaded().
    void load(const QString &vaultParentDir);

signals:
    void found(const QVector<vault::VaultLocation> &locations);
    void loaded(const QString &vaultParentDir, const QJsonArray &files);

private:
    using Stop = std::shared_ptr<std::atomic<bool>>;

    static void end(const Stop &request);
    /// Ends the request in `current` and puts a new one there.
    static Stop begin(Stop *current);
    /// Runs `work` elsewhere and `done` with its result here, unless it was stopped meanwhile.
    template <typename Work, typename Done>
    void run(const Stop &stop, Work work, Done done);

    // Of the requests that run. Apart: whoever chooses a vault while they are looked for waits for
    // both.
    Stop m_find;
    Stop m_load;
};

} // namespace vaultbrowser
