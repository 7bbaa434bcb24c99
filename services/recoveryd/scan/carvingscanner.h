#pragma once

#include "recoveryd/carve/magicindex.h"
#include "recoveryd/carve/text/textrun.h"
#include "recoveryd/scan/scanner.h"
#include "recoveryd/scan/scanrequest.h"

namespace services::recoveryd {

/// Finds files by their contents in the ranges given, which are seen as one run: a file whose
/// pieces lie on both sides of an existing one is found. Files begin at multiples of `alignment`
/// bytes. Behind a file whose end was seen the search goes on at the next multiple; a file without
/// an end, or whose end is only told by its header, is cut where the next one begins. What no
/// format claims and is text becomes a text file.
class CarvingScanner : public Scanner
{
public:
    struct Plan
    {
        Volume volume;
        std::shared_ptr<const MediaReader> media; ///< Of the volume; made where it is not given.
        Ranges ranges;
        qint64 alignment = 512; ///< A multiple of 512.
        ScanRequest request;
        QString phaseText;
    };

    explicit CarvingScanner(const Plan &plan);

    QString phaseText() const override { return m_plan.phaseText; }
    qint64 totalWork() const override { return totalLength(m_plan.ranges); }
    bool scan(ScanObserver &observer, QString *error) override;

private:
    bool sweep(WindowReader &reader, ScanObserver &observer);
    qint64 nextCandidate(WindowReader &reader, qint64 at) const;
    /// The sector at `at`, filled up with zeros at the end of the run.
    const uchar *sectorAt(WindowReader &reader, qint64 at);
    bool carveAt(WindowReader &reader, qint64 at, const uchar *sector, CarvedFile *file,
                 qint64 *start);
    bool carveWithin(WindowReader &reader, const Carver &carver, qint64 start, CarvedFile *file);
    bool isBesideBadSectors(const WindowReader &reader, qint64 start, qint64 length) const;
    bool isInToldFile(qint64 at) const;
    bool isIntruder(const CarvedFile &file) const;
    bool takeCarved(WindowReader &reader, const CarvedFile &file, qint64 start,
                    ScanObserver &observer);
    [[nodiscard]] bool takeText(WindowReader &reader, const uchar *sector, ScanObserver &observer);
    [[nodiscard]] bool closeText(WindowReader &reader, ScanObserver &observer);
    [[nodiscard]] bool closeOpen(WindowReader &reader, qint64 next, ScanObserver &observer);
    [[nodiscard]] bool report(WindowReader &reader, CarvedFile file, qint64 start,
                              ScanObserver &observer);
    qint64 alignedUp(qint64 offset) const;

    Plan m_plan;
    MagicIndex m_index;
    uchar m_lastSector[MagicIndex::kSector] = {};

    // Places within the run.
    qint64 m_at = 0;
    qint64 m_reportedTo = 0; ///< Behind the last file with an end.
    /// Without an end, or with one that is only told: waits for where the next file begins.
    CarvedFile m_open;
    qint64 m_openStart = -1;
    TextRun m_text;

    qint64 m_wastedBytes = 0; ///< Examined for files whose end was not found.
    qint64 m_carvingMs = 0;
};

} // namespace services::recoveryd
