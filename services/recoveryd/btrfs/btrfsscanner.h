#pragma once

#include "recoveryd/btrfs/btrfsvolume.h"
#include "recoveryd/btrfs/nodesweep.h"
#include "recoveryd/btrfs/remains.h"
#include "recoveryd/scan/scancontext.h"
#include "recoveryd/scan/scanner.h"

#include <memory>

namespace services::recoveryd::btrfs {

/// Finds files by the nodes of a Btrfs volume and of those that were on the same device before:
/// nodes are written anew at each change, and the old ones stay where they are until their place
/// is needed. A quick scan sweeps the parts of the device that nodes were ever written to, a deep
/// one also what is free; where these are not known, or the device is small, everything is swept.
class BtrfsScanner : public Scanner
{
public:
    explicit BtrfsScanner(const ScanContext &context);

    QString phaseText() const override;
    qint64 totalWork() const override;
    bool scan(ScanObserver &observer, QString *error) override;

private:
    /// The device is large, and where its nodes are is known.
    bool canChoose() const;
    Ranges rangesToSweep(bool isDeep) const;
    /// Parts of the device that were given to nodes by chunks that are known by now.
    Ranges nodeRanges() const;
    void take(int format, qint64 offset, const NodeView &node);
    bool isLive(const NodeView &node);
    /// Live leaves that the sweep has not met: of bad first copies.
    void takeMissedLeaves();
    /// Sweeps and reports. False if the observer ended it.
    [[nodiscard]] bool pass(bool isDeep, ScanObserver &observer);
    [[nodiscard]] bool sweep(bool isDeep, ScanObserver &observer);
    [[nodiscard]] bool report(ScanObserver &observer);

    ScanContext m_context;
    BtrfsVolume m_volume;
    bool m_isOpen;
    std::vector<NodeView::Pointer> m_liveLeaves;     ///< Ascending by address.
    std::vector<bool> m_isMet;                       ///< Of the same.
    std::vector<std::unique_ptr<Remains>> m_remains; ///< By format; the volume's own first.
};

} // namespace services::recoveryd::btrfs
