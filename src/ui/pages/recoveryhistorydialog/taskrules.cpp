#include "ui/pages/recoveryhistorydialog/taskrules.h"

#include "core/jsonnumber.h"
#include "ui/common/utils/formatutils.h"
#include "ui/common/utils/timetext.h"

using recoveryresult::FileResult;
using ui::common::CellTableModel;

namespace recoveryhistory {

namespace {

QString count(const QJsonObject &task, const char *key)
{
    return QString::number(core::toInt64(task.value(QLatin1String(key))));
}

} // namespace

QString translateTaskStatus(const QString &status)
{
    if (status == QLatin1String("success") || status == QLatin1String("completed"))
        return QStringLiteral("完成");
    if (status == QLatin1String("completed_with_errors"))
        return QStringLiteral("部分异常");
    if (status == QLatin1String("failed"))
        return QStringLiteral("失败");
    if (status == QLatin1String("running"))
        return QStringLiteral("进行中");
    return status;
}

bool isRunning(const QJsonObject &task)
{
    return task.value(QLatin1String("status")).toString() == QLatin1String("running");
}

QString summarizeTask(const QJsonObject &task)
{
    const qint64 bytes = core::toInt64(task.value(QLatin1String("writtenBytes")));
    return QStringLiteral("成功 %1 / 失败 %2 / 部分 %3 / %4")
        .arg(count(task, "succeeded"), count(task, "failed"), count(task, "partial"),
             ui::common::utils::formatByteSize(bytes));
}

QVector<CellTableModel::Row> taskRows(const QJsonArray &tasks)
{
    QVector<CellTableModel::Row> rows;
    rows.reserve(tasks.size());
    for (const QJsonValue &value : tasks) {
        const QJsonObject task = value.toObject();
        const QString status = translateTaskStatus(task.value(QLatin1String("status")).toString());
        CellTableModel::Row row;
        row.id = task.value(QLatin1String("recoveryId")).toString();
        row.cells = {
            row.id,
            ui::common::utils::timeText(task.value(QLatin1String("startedAt"))),
            QStringLiteral("%1 · %2").arg(status, summarizeTask(task)),
            task.value(QLatin1String("outputDir")).toString(),
        };
        rows.append(row);
    }
    return rows;
}

QVector<FileResult> fileResults(const QJsonObject &taskDetail)
{
    const QJsonArray statuses = taskDetail.value(QLatin1String("fileStatuses")).toArray();
    QVector<FileResult> results;
    results.reserve(statuses.size());
    for (const QJsonValue &value : statuses)
        results.append(FileResult::fromJson(value.toObject()));
    return results;
}

} // namespace recoveryhistory
