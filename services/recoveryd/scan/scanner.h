#pragma once

#include "recoveryd/scan/finding.h"

namespace services::recoveryd {

/// What a scanner tells while it works. Called on the scanner's thread.
class ScanObserver
{
public:
    virtual ~ScanObserver() = default;

    /// Asked between pieces of work; blocks while the scan is paused. False: end now.
    virtual bool mayGoOn() = 0;
    /// `done` of Scanner::totalWork() bytes.
    virtual void advanced(qint64 done) = 0;
    /// False once no further file can be taken: end now.
    virtual bool found(Finding &&finding) = 0;
};

/// One way of finding deleted files: by their contents, or by what the file system still says about
/// them. A scan runs its scanners one after another.
class Scanner
{
public:
    virtual ~Scanner() = default;

    /// What the user is told about this phase.
    virtual QString phaseText() const = 0;
    /// Bytes that will be looked at, for the progress.
    virtual qint64 totalWork() const = 0;
    /// False only on an error; a stop is none.
    [[nodiscard]] virtual bool scan(ScanObserver &observer, QString *error) = 0;
};

} // namespace services::recoveryd
