#pragma once

#include "ui/common/celltablemodel.h"
#include "ui/pages/recoverydetaildialog/fileresult.h"

#include <QJsonArray>
#include <QJsonObject>

namespace recoveryhistory {

/// A task's status word in Chinese; an unknown one as it stands.
QString translateTaskStatus(const QString &status);
bool isRunning(const QJsonObject &task);

/// "成功 3 / 失败 0 / 部分 1 / 1.5 MB".
QString summarizeTask(const QJsonObject &task);

/// Rows of the task table in the service's order, each with its recovery id.
QVector<ui::common::CellTableModel::Row> taskRows(const QJsonArray &tasks);
/// The files of a task's detail.
QVector<recoveryresult::FileResult> fileResults(const QJsonObject &taskDetail);

} // namespace recoveryhistory
