#pragma once

#include "recoveryd/fat/fatlayout.h"
#include "recoveryd/scan/scancontext.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd::fat {

class FatSurvey;
struct StrayDirectory;

/// Finds files by the directories of a FAT volume: deleted entries, deleted directories, and by
/// sweeping those that nothing leads to any more, also of an earlier format with other clusters. A
/// quick scan of a healthy volume sweeps only the beginning of the free space.
class FatScanner : public Scanner
{
public:
    explicit FatScanner(const ScanContext &context);

    QString phaseText() const override;
    qint64 totalWork() const override;
    bool scan(ScanObserver &observer, QString *error) override;

private:
    [[nodiscard]] bool scanAll(ScanObserver &observer);
    [[nodiscard]] bool scanFormer(const QVector<StrayDirectory> &strays, ScanObserver &observer,
                                  qint64 *done) const;
    bool sweepsEverything() const;

    ScanContext m_context;
    FatLayout m_layout;
    bool m_isOpen;
    qint64 m_work = 0;
};

/// The grid that most of the stray directories agree on; false if no two of them do. Pure.
[[nodiscard]] bool gridOfStrays(const QVector<StrayDirectory> &strays, qint64 volumeSize,
                                ClusterGrid *grid);

} // namespace services::recoveryd::fat
