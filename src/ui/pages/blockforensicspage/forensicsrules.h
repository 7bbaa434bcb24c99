#pragma once

#include "ui/common/celltablemodel.h"

#include <QColor>
#include <QJsonArray>
#include <QJsonObject>

namespace blockforensics {

/// Bytes as "512 B", "1.5 KB" and so on to TB; one decimal from KB on.
QString formatSize(qint64 bytes);
/// "0x1f400".
QString hexOffset(qint64 offset);
/// The first characters of a hash, with "..." where more follow; "--" without one.
QString shortHash(const QString &hash);

/// How a block's status is shown. Any unknown word means that the block has changed.
struct StatusLook
{
    QColor color;
    QString text;
};
StatusLook statusLook(const QString &status);
/// The same for a share of unchanged blocks, in percent.
QColor integrityColor(double percent);
QString blockToolTip(const QJsonObject &block);

/// "/home/a.txt\ninode:12  3块" for the list of snapshots.
QString snapshotEntry(const QJsonObject &snapshot);
QVector<ui::common::CellTableModel::Row> extentRows(const QJsonArray &extents);
/// One row of the table of verifications, with the verification's id.
ui::common::CellTableModel::Row verificationRow(const QJsonObject &verification);

/// What is said after a registration and after a recovery.
QString registeredText(const QJsonObject &result);
QString recoveredText(const QJsonObject &result);

} // namespace blockforensics
