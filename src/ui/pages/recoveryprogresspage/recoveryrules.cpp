#include "ui/pages/recoveryprogresspage/recoveryrules.h"

#include "ui/pages/recoverydetaildialog/fileresult.h"

#include <QDir>
#include <QFileInfo>

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
    return outcome != Outcome::Skipped;
}

QString buildRecoveryOutputDir(const QString &base, const QDateTime &now)
{
    const QDir parent(base.trimmed());
    const QString name =
        QStringLiteral("文件恢复_%1").arg(now.toString(QStringLiteral("yyyyMMdd_HHmmss")));
    QString path = parent.filePath(name);
    // A dangling link exists, too, though its target does not.
    for (int counter = 1; QFileInfo::exists(path) || QFileInfo(path).isSymLink(); ++counter)
        path = parent.filePath(QStringLiteral("%1_%2").arg(name).arg(counter));
    return path;
}

int shownPercent(double progress)
{
    // Rounded down, so that 100 stands for a recovery that is through.
    return std::isnan(progress) ? 0 : int(std::floor(qBound(0.0, progress, 100.0)));
}

} // namespace recoveryprogress
