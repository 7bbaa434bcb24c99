#include "ui/pages/blockforensicspage/forensicsrules.h"

#include "core/jsonnumber.h"
#include "ui/common/theme.h"
#include "ui/common/utils/timetext.h"

using ui::common::CellTableModel;
using ui::common::LegacyColors;

namespace blockforensics {

namespace {

constexpr int kShownHash = 16; ///< Characters of a hash that tell it from others at a glance.

qint64 number(const QJsonObject &object, const char *key)
{
    return core::toInt64(object.value(QLatin1String(key)));
}

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

} // namespace

QString formatSize(qint64 bytes)
{
    if (bytes < 1024)
        return QStringLiteral("%1 B").arg(bytes);
    static const char *const kUnits[] = {"B", "KB", "MB", "GB", "TB"};
    double value = double(bytes);
    int unit = 0;
    for (; value >= 1024.0 && unit < 4; ++unit)
        value /= 1024.0;
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(QLatin1String(kUnits[unit]));
}

QString hexOffset(qint64 offset)
{
    return QStringLiteral("0x%1").arg(offset, 0, 16);
}

QString shortHash(const QString &hash)
{
    if (hash.isEmpty())
        return QStringLiteral("--");
    return hash.size() <= kShownHash ? hash : hash.left(kShownHash) + QStringLiteral("...");
}

StatusLook statusLook(const QString &status)
{
    if (status == QLatin1String("unchanged"))
        return {LegacyColors::blockUnchanged(), QStringLiteral("✔ 未变化")};
    if (status == QLatin1String("zeroed"))
        return {LegacyColors::blockZeroed(), QStringLiteral("○ 已清零")};
    return {LegacyColors::blockChanged(), QStringLiteral("✖ 已变化")};
}

QColor integrityColor(double percent)
{
    if (percent >= 99.9)
        return LegacyColors::blockUnchanged();
    return percent >= 80.0 ? LegacyColors::blockZeroed() : LegacyColors::blockChanged();
}

QString blockToolTip(const QJsonObject &block)
{
    return QStringLiteral("块 %1 · 物理块 %2 · %3")
        .arg(number(block, "blockIndex"))
        .arg(number(block, "physicalBlock"))
        .arg(statusLook(text(block, "status")).text);
}

QString snapshotEntry(const QJsonObject &snapshot)
{
    return QStringLiteral("%1\ninode:%2  %3块")
        .arg(text(snapshot, "filePath"), QString::number(number(snapshot, "inodeNumber")),
             QString::number(number(snapshot, "totalBlocks")));
}

QVector<CellTableModel::Row> extentRows(const QJsonArray &extents)
{
    QVector<CellTableModel::Row> rows;
    rows.reserve(extents.size());
    for (const QJsonValue &value : extents) {
        const QJsonObject extent = value.toObject();
        CellTableModel::Row row;
        row.cells = {hexOffset(number(extent, "physicalOffset")),
                     hexOffset(number(extent, "logicalOffset")),
                     formatSize(number(extent, "length"))};
        rows.append(row);
    }
    return rows;
}

CellTableModel::Row verificationRow(const QJsonObject &verification)
{
    const double percent = verification.value(QLatin1String("integrityPercent")).toDouble();
    const bool inodeChanged = verification.value(QLatin1String("inodeChanged")).toBool();
    CellTableModel::Row row;
    row.id = text(verification, "verificationId");
    row.cells = {
        ui::common::utils::timeText(verification.value(QLatin1String("verifyTime"))),
        {QStringLiteral("%1%").arg(percent), integrityColor(percent)},
        QStringLiteral("%1 / %2 / %3")
            .arg(number(verification, "unchangedBlocks"))
            .arg(number(verification, "changedBlocks"))
            .arg(number(verification, "zeroedBlocks")),
        inodeChanged ? QStringLiteral("已变化") : QStringLiteral("未变化"),
        text(verification, "note"),
    };
    return row;
}

QString registeredText(const QJsonObject &result)
{
    return QStringLiteral("Inode: %1, 块数: %2")
        .arg(number(result, "inodeNumber"))
        .arg(number(result, "totalBlocks"));
}

QString recoveredText(const QJsonObject &result)
{
    // Replaced in one go: a path may itself hold "%2".
    QString words =
        QStringLiteral("文件已保存至：%1\n写入: %2")
            .arg(text(result, "outputPath"), formatSize(number(result, "bytesWritten")));
    const qint64 failedBlocks = number(result, "failedBlocks");
    if (failedBlocks > 0)
        words += QStringLiteral("\n警告: %1 个块读取失败，已填零").arg(failedBlocks);
    return words;
}

} // namespace blockforensics
