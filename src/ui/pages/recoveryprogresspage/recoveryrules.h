#pragma once

#include <QHash>
#include <QString>

namespace recoveryprogress {

/// Counts the files of one recovery. Each file counts once, at its first final status; what comes
/// later never moves it.
class RecoveryTally
{
public:
    void reset();
    /// Takes note of a status word; true if a counter went up.
    bool record(const QString &fileId, const QString &status);

    int succeeded() const { return m_succeeded; }
    /// Files written in part are failures, too.
    int failed() const { return m_failed; }
    /// Files that were left out on purpose; neither of the others.
    int skipped() const { return m_skipped; }

private:
    QHash<QString, bool> m_isSettled; ///< By file id: whether a final status has come.
    int m_succeeded = 0;
    int m_failed = 0;
    int m_skipped = 0;
};

/// `progress` in percent as a whole number from 0 to 100; what is no number is 0.
int shownPercent(double progress);

} // namespace recoveryprogress
