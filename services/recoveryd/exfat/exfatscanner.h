#pragma once

#include "recoveryd/exfat/exfatlayout.h"
#include "recoveryd/scan/scancontext.h"
#include "recoveryd/scan/scanner.h"

namespace services::recoveryd::exfat {

/// Finds files by the directories of an exFAT volume: deleted entry sets, deleted directories, and
/// by sweeping those that nothing leads to any more. A quick scan of a healthy volume sweeps only
/// the beginning of the free space.
class ExfatScanner : public Scanner
{
public:
    explicit ExfatScanner(const ScanContext &context);

    QString phaseText() const override;
    qint64 totalWork() const override;
    bool scan(ScanObserver &observer, QString *error) override;

private:
    bool sweepsEverything() const;

    ScanContext m_context;
    ExfatLayout m_layout;
    bool m_isOpen;
};

} // namespace services::recoveryd::exfat
