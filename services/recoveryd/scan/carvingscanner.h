#pragma once

#include "recoveryd/scan/scanner.h"
#include "recoveryd/scan/scanrequest.h"

#include <array>

namespace services {
namespace recoveryd {

/// Finds files by their first bytes, in the ranges given, at multiples of `alignment` bytes of the
/// volume. Behind a file whose end was seen the search goes on at the next multiple; a file without
/// an end is cut where the next one begins.
class CarvingScanner : public Scanner
{
public:
    struct Plan
    {
        Volume volume;
        std::shared_ptr<const MediaReader> media; ///< Of the volume; made where it is not given.
        Ranges ranges;
        qint64 alignment = 512;
        ScanRequest request;
        QString phaseText;
    };

    explicit CarvingScanner(const Plan &plan);

    QString phaseText() const override { return m_plan.phaseText; }
    qint64 totalWork() const override { return totalLength(m_plan.ranges); }
    bool scan(ScanObserver &observer, QString *error) override;

private:
    bool scanRange(WindowReader &reader, const Range &range, ScanObserver &observer);
    qint64 nextCandidate(WindowReader &reader, qint64 at) const;
    bool carveAt(WindowReader &reader, qint64 at, CarvedFile *file);
    [[nodiscard]] bool report(const CarvedFile &file, qint64 start, ScanObserver &observer);
    qint64 alignedUp(qint64 offset) const;

    Plan m_plan;
    std::array<bool, 256> m_isFirstByte = {};
    qint64 m_done = 0;        ///< Bytes of the ranges before the current one.
    qint64 m_wastedBytes = 0; ///< Examined for files whose end was not found.
};

} // namespace recoveryd
} // namespace services
