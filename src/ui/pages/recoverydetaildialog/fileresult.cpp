#include "ui/pages/recoverydetaildialog/fileresult.h"

#include <QJsonArray>

namespace recoveryresult {

namespace {

struct StatusRow
{
    const char *word;
    Outcome outcome;
    const char *text;
    const char *conclusion;
};

constexpr StatusRow kStatuses[] = {
    {"success", Outcome::Success, "已恢复", "恢复已完成，未检测到异常。"},
    {"succeeded", Outcome::Success, "已恢复", "恢复已完成，未检测到异常。"},
    {"failed", Outcome::Failure, "失败", "恢复过程中发生错误，文件未能完整写出。"},
    {"error", Outcome::Failure, "失败", "恢复过程中发生错误，文件未能完整写出。"},
    {"partial", Outcome::Failure, "部分恢复", "文件已写出，但完整性校验未完全通过。"},
    {"skipped", Outcome::Skipped, "已跳过", "该文件未被写出，通常是由于冲突策略为跳过。"},
};

const StatusRow *find(const QString &status)
{
    for (const StatusRow &row : kStatuses) {
        if (status == QLatin1String(row.word))
            return &row;
    }
    return nullptr;
}

} // namespace

FileResult FileResult::fromJson(const QJsonObject &object)
{
    FileResult result;
    result.fileId = object.value(QLatin1String("fileId")).toString();
    result.name = object.value(QLatin1String("name")).toString();
    result.status = object.value(QLatin1String("status")).toString();
    result.detail = object.value(QLatin1String("detail")).toString();
    const QJsonArray steps = object.value(QLatin1String("timeline")).toArray();
    for (const QJsonValue &step : steps)
        result.timeline.append(step.toString());
    return result;
}

Outcome outcomeOf(const QString &status)
{
    const StatusRow *row = find(status);
    return row ? row->outcome : Outcome::Pending;
}

QString statusText(const QString &status, bool isRunning)
{
    if (const StatusRow *row = find(status))
        return QString::fromUtf8(row->text);
    if (!isRunning)
        return QStringLiteral("未完成");
    return status.isEmpty() ? QStringLiteral("等待恢复") : QStringLiteral("恢复中");
}

QString conclusion(const FileResult &result)
{
    if (!result.detail.isEmpty())
        return result.detail;
    const StatusRow *row = find(result.status);
    return row ? QString::fromUtf8(row->conclusion) : QStringLiteral("恢复任务正在进行中。");
}

} // namespace recoveryresult
