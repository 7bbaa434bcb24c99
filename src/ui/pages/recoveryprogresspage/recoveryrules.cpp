#include "ui/pages/recoveryprogresspage/recoveryrules.h"

#include "ui/pages/recoverydetaildialog/fileresult.h"

#include <cmath>

using recoveryresult::Outcome;

namespace recoveryprogress {

void RecoveryTally::reset()
{
    *this = RecoveryTally();
}

bool RecoveryTally::record(const QString &fileId, const QString &status)
{
    const Outcome outcome = recoveryresult::outcomeOf(status);
    bool &isSettled = m_isSettled[fileId];
    if (isSettled || outcome == Outcome::Pending)
        return false;
    isSettled = true;
    if (outcome == Outcome::Success)
        ++m_succeeded;
    else if (outcome == Outcome::Failure)
        ++m_failed;
    else
        ++m_skipped;
    return true;
}

int shownPercent(double progress)
{
    // Rounded down, so that 100 stands for a recovery that is through.
    return std::isnan(progress) ? 0 : int(std::floor(qBound(0.0, progress, 100.0)));
}

} // namespace recoveryprogress
