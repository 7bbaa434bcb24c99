#pragma once

#include "recoveryd/ntfs/ntfsvolume.h"
#include "recoveryd/scan/scancontext.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd::ntfs {

class EarlierScan;
class NameBook;
class RecordSweep;

/// Finds files by the metadata of an NTFS volume: by its file table, and by FILE records wherever
/// else they are left. A quick scan looks for the latter only where a file table usually goes on; a
/// deep scan in all free space; where no table is known, everywhere.
class NtfsScanner : public Scanner
{
public:
    explicit NtfsScanner(const ScanContext &context);

    QString phaseText() const override;
    qint64 totalWork() const override;
    bool scan(ScanObserver &observer, QString *error) override;

private:
    Ranges rangesToSweep() const;
    /// False if the observer ended it.
    [[nodiscard]] bool scanAll(ScanObserver &observer);
    [[nodiscard]] bool sweep(quint64 formattedTime, NameBook &names, EarlierScan &fragments,
                             NameBook &earlierNames, EarlierScan &earlier, ScanObserver &observer);

    /// Where old file tables usually are, in space that is in use now, too: the end of a cluster
    /// may still hold a record that its new file does not reach.
    [[nodiscard]] bool followTables(RecordSweep &sweeper, ScanObserver &observer) const;

    ScanContext m_context;
    NtfsVolume m_volume;
    bool m_isOpen;
    Ranges m_sweep; ///< All of what a deep scan sweeps; empty for a quick one.
};

} // namespace services::recoveryd::ntfs
