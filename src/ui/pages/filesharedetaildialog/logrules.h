#pragma once

#include <QString>

/// What the access log of a share shows. No widgets.
namespace fileshare {

/// Rows of one page of the log.
constexpr int kLogPageSize = 15;

/// Unknown actions stand as they are.
QString actionText(const QString &action);

enum class LogOutcome { Success, Conflict, Failure };
LogOutcome outcomeOf(const QString &action);
QString outcomeText(LogOutcome outcome);

/// Pages that `total` entries take; 0 for none.
int pageCount(int total);
/// The page to show when `page` was shown before: the last one where there are fewer now.
int clampedPage(int page, int total);
/// "第 1 / 3 页，共 40 条"; empty without entries.
QString pageText(int page, int total);

} // namespace fileshare
