#pragma once

#include "ui/common/utils/formatutils.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

/// What the share page and its dialogs say about shares, and what may be shared.
namespace fileshare {

bool isActive(const QString &status);
bool isExpired(const QString &status);
/// Unknown states count as stopped.
QString statusText(const QString &status);
QString permissionText(const QString &accessMode);
/// Minutes; below 1 there is no limit.
QString durationText(int minutes);
/// Local time of milliseconds since the epoch in a QDateTime format; `none` when not above 0.
QString timeText(qint64 msSinceEpoch, const QString &format, const QString &none = QString());
/// What a record offers: details, to stop or start it, to delete it.
QStringList sessionActions(bool isActive);
/// "12 条记录，3 个共享中".
QString recordsText(int total, int active);

/// Name of a path; the whole path where it has none.
QString displayName(const QString &path);
/// One line of a list of paths: name and path.
QString pathRowText(const QString &path);
/// Clean absolute paths of `candidates` that are neither in `listed` nor given twice, in order.
QStringList newPaths(const QStringList &listed, const QStringList &candidates);
/// Paths of the local ones among dropped addresses.
QStringList localPaths(const QList<QUrl> &urls);
/// What stands under the list of paths: how many there are, and how many that were just added are
/// listed already, and the port, if there is one.
QString pendingText(int count, int ignored, int port);

/// How a share can be reached. Says so if there is no address.
QString linksText(const QStringList &urls);
/// Who can do what once a share with these settings runs.
QString exposureText(bool hasPassword, const QString &accessMode);
/// Outcome of starting several shares.
QString startedText(int started, int failed);

using ui::common::utils::plainTip;

} // namespace fileshare
