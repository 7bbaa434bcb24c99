#pragma once

#include "wechat/cleanactions.h"
#include "wechat/fileoperations.h"

#include <QList>
#include <QStringList>

namespace wechat {

/// True if the list of processes names a WeChat or WXWork client; `processes` are its lines. False
/// too if the list cannot be had within three seconds.
bool isWechatRunning(QStringList *processes);

struct PreflightResult
{
    QStringList warnings;
    QStringList issues; ///< Forbid the clean.
    /// Copies on another partition than their kept file: one for each such issue.
    QStringList elsewhere;
};

/// What speaks against the actions as the disk is now, apart from a running client.
PreflightResult checkActions(FileOperations &operations, const QList<CleanAction> &actions);

} // namespace wechat
