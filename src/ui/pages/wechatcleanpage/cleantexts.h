#pragma once

#include "ui/common/statwidgets.h"
#include "ui/pages/wechatcleanpage/cleanresults.h"

#include <QColor>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace ui {
namespace common {
class ThemeColors;
}
} // namespace ui

namespace wechatclean {

/// "0 B", "1.5 KB" up to TB; one decimal from KB on. Negative counts as 0.
QString formatSize(qint64 bytes);
/// Relative to the innermost of the directories that holds the path, if any; a long path is cut to
/// ".../" and its last three segments.
QString displayPathForFile(const QString &path, const QStringList &scanDirs);

QString summaryLine(const ResultSummary &summary);
QString groupLine(const ResultGroup &group);
QString fileCaption(const ResultFile &file);

/// The lines joined by line feeds. Of very many only the first ones, with a line that says how many
/// more there are: a notice that lays out a hundred thousand lines would never come up.
QString joinedLines(const QStringList &lines);
QString confirmCleanText(const ActionTotals &totals, const QStringList &warnings);
/// `stopped`: the user stopped the clean.
QString cleanDoneText(int mergedCount, qint64 reclaimedBytes, bool stopped,
                      const QStringList &errors);
/// Copies on other partitions that a clean leaves out, as warnings of confirmCleanText().
QStringList leftOutLines(const QStringList &elsewhere);
/// Without a record the numbers are left out.
QString confirmUndoText(const QVariantMap &record);
QString undoDoneText(int restoredCount, const QStringList &errors);
/// What a clean or an undo of at least one file has done, for the results page. `errors`: how many
/// files it left out.
ResultOutcome cleanOutcome(int mergedCount, qint64 reclaimedBytes, bool stopped, int errors);
ResultOutcome undoOutcome(int restoredCount, int errors);
/// What was repaired after an interrupted clean; empty if nothing was left over. `unavailable` are
/// folders that cannot be read now.
QString recoveryText(const QStringList &restored, const QStringList &removed,
                     const QStringList &errors, const QStringList &unavailable);

QString operationStatusText(const QString &status);
/// One colour per status, of the palette; not fit for small text without ThemeColors::readable().
QColor operationStatusColor(const QString &status, const ui::common::ThemeColors &colors);
ui::common::StatusPill::Type operationStatusPill(const QString &status);
bool mayUndo(const QString &status);
/// "处理 %1 组，释放 %2".
QString recordOverview(const QVariantMap &record);
/// The files of a record, group by group.
QString recordFilesText(const QVariantMap &record);

} // namespace wechatclean
