#include "ui/pages/filesharedetaildialog/logrules.h"

#include <QtGlobal>

namespace fileshare {

namespace {

struct ActionWord
{
    const char *action;
    const char *text; ///< UTF-8.
    LogOutcome outcome;
};

constexpr ActionWord kActions[] = {
    {"browse", "浏览", LogOutcome::Success},
    {"download", "下载", LogOutcome::Success},
    {"auth_ok", "认证成功", LogOutcome::Success},
    {"auth_fail", "认证失败", LogOutcome::Failure},
    {"upload_ok", "上传成功", LogOutcome::Success},
    {"upload_conflict", "上传冲突", LogOutcome::Conflict},
    {"upload_fail", "上传失败", LogOutcome::Failure},
};

const ActionWord *wordFor(const QString &action)
{
    for (const ActionWord &word : kActions) {
        if (action == QLatin1String(word.action))
            return &word;
    }
    return nullptr;
}

} // namespace

QString actionText(const QString &action)
{
    const ActionWord *word = wordFor(action);
    return word ? QString::fromUtf8(word->text) : action;
}

LogOutcome outcomeOf(const QString &action)
{
    const ActionWord *word = wordFor(action);
    return word ? word->outcome : LogOutcome::Success;
}

QString outcomeText(LogOutcome outcome)
{
    switch (outcome) {
    case LogOutcome::Conflict:
        return QStringLiteral("冲突");
    case LogOutcome::Failure:
        return QStringLiteral("失败");
    case LogOutcome::Success:
        break;
    }
    return QStringLiteral("成功");
}

int pageCount(int total)
{
    return (total + kLogPageSize - 1) / kLogPageSize;
}

int clampedPage(int page, int total)
{
    return qBound(0, page, qMax(0, pageCount(total) - 1));
}

QString pageText(int page, int total)
{
    if (total < 1)
        return QString();
    return QStringLiteral("第 %1 / %2 页，共 %3 条")
        .arg(QString::number(page + 1), QString::number(pageCount(total)), QString::number(total));
}

} // namespace fileshare
