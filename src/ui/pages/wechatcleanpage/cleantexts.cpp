#include "ui/pages/wechatcleanpage/cleantexts.h"

#include "core/pathutil.h"
#include "ui/common/theme.h"
#include "ui/common/utils/formatutils.h"
#include "ui/pages/wechatcleanpage/cleanrecords.h"

#include <QDir>

using ui::common::StatusPill;
using ui::common::ThemeColors;

namespace wechatclean {

namespace {

constexpr int kLongPath = 64; ///< Characters.
constexpr int kSegmentsKept = 3;
constexpr int kMostLines = 200;
constexpr qint64 kTebibyte = Q_INT64_C(1024) * 1024 * 1024 * 1024;

struct Status
{
    const char *name;
    const char *text; ///< UTF-8.
    QColor ThemeColors::*color;
    StatusPill::Type pill;
    bool mayUndo;
};

const Status kStatuses[] = {
    {"active", "可撤销", &ThemeColors::successText, StatusPill::Success, true},
    {"undone", "已撤销", &ThemeColors::textMuted, StatusPill::Info, false},
    {"partial", "部分可撤销", &ThemeColors::warningText, StatusPill::Warning, true},
    {"invalid", "不可撤销", &ThemeColors::dangerText, StatusPill::Danger, false},
};
/// A status of a later or an earlier version.
const Status kOther = {"", "可撤销", &ThemeColors::infoText, StatusPill::Success, true};

const Status &statusOf(const QString &name)
{
    for (const Status &status : kStatuses) {
        if (name == QLatin1String(status.name))
            return status;
    }
    return kOther;
}

/// The heading with the count, and the lines under it; empty without lines.
QString section(const QString &heading, const QStringList &lines)
{
    return lines.isEmpty() ? QString()
                           : heading.arg(lines.size()) + QLatin1Char('\n') + joinedLines(lines);
}

} // namespace

QString formatSize(qint64 bytes)
{
    if (bytes >= 1000 * kTebibyte)
        return QStringLiteral("%1 TB").arg(
            static_cast<double>(bytes) / static_cast<double>(kTebibyte), 0, 'f', 1);
    return ui::common::utils::formatByteSize(qMax<qint64>(0, bytes));
}

QString displayPathForFile(const QString &path, const QStringList &scanDirs)
{
    QString base;
    for (const QString &dir : scanDirs) {
        if (dir.size() > base.size() && path != dir && core::isInside(path, dir))
            base = dir;
    }
    const QString shown = base.isEmpty() ? path : QDir(base).relativeFilePath(path);
    if (shown.size() <= kLongPath)
        return shown;
    QStringList segments = shown.split(QLatin1Char('/'));
    segments.removeAll(QString());
    if (segments.size() <= kSegmentsKept)
        return shown;
    return QStringLiteral(".../") +
           QStringList(segments.mid(segments.size() - kSegmentsKept)).join(QLatin1Char('/'));
}

QString summaryLine(const ResultSummary &summary)
{
    return QStringLiteral("共发现 %1 组重复文件，预计可释放 %2")
        .arg(QString::number(summary.totalGroups), formatSize(summary.totalReclaimable));
}

QString groupLine(const ResultGroup &group)
{
    return QStringLiteral("%1 个文件 · 单文件 %2 · 可释放 %3")
        .arg(QString::number(group.files.size()), formatSize(group.size),
             formatSize(group.reclaimable()));
}

QString fileCaption(const ResultFile &file)
{
    const QString time =
        file.modified.isValid()
            ? file.modified.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm"))
            : QStringLiteral("未知");
    return QStringLiteral("修改时间：%1  ·  关联路径：%2")
        .arg(time, QString::number(file.aliasPaths.size()));
}

QString joinedLines(const QStringList &lines)
{
    if (lines.size() <= kMostLines)
        return lines.join(QLatin1Char('\n'));
    return QStringList(lines.mid(0, kMostLines)).join(QLatin1Char('\n')) +
           QStringLiteral("\n……另有 %1 项").arg(lines.size() - kMostLines);
}

QString confirmCleanText(const ActionTotals &totals, const QStringList &warnings)
{
    QString text =
        QStringLiteral("将处理 %1 组重复文件，把 %2 个副本（%3 个路径）合并为指向保留文件的硬链接，"
                       "预计释放 %4。合并后它们共用同一份内容：修改其中一个，其余也会随之改变。"
                       "可在“清理记录”中撤销。\n\n将按当前选择执行文件合并，确定继续吗？")
            .arg(QString::number(totals.groups), QString::number(totals.copies),
                 QString::number(totals.paths), formatSize(totals.bytes));
    if (!warnings.isEmpty())
        text += QStringLiteral("\n\n注意：\n") + joinedLines(warnings);
    return text;
}

QString cleanDoneText(int mergedCount, qint64 reclaimedBytes, bool stopped,
                      const QStringList &errors)
{
    QString text = QStringLiteral("成功处理 %1 个副本，释放 %2。")
                       .arg(QString::number(mergedCount), formatSize(reclaimedBytes));
    text += QStringLiteral("\n这些路径现在是指向保留文件的硬链接，可在“清理记录”中撤销。");
    if (stopped)
        text += QStringLiteral("\n清理已按要求停止，其余文件保持原样。");
    if (!errors.isEmpty())
        text += QStringLiteral("\n\n") + joinedLines(errors);
    return text;
}

QStringList leftOutLines(const QStringList &elsewhere)
{
    return {QStringLiteral("%1 个副本与保留文件不在同一分区，不能合并，将保持原样：")
                .arg(elsewhere.size()),
            joinedLines(elsewhere)};
}

ResultOutcome cleanOutcome(int mergedCount, qint64 reclaimedBytes, bool stopped, int errors)
{
    ResultOutcome outcome;
    outcome.title = stopped ? QStringLiteral("清理已停止") : QStringLiteral("清理完成");
    outcome.text = QStringLiteral("成功处理 %1 个副本，释放 %2。")
                       .arg(QString::number(mergedCount), formatSize(reclaimedBytes));
    if (errors > 0)
        outcome.text += QStringLiteral("另有 %1 项未处理。").arg(errors);
    outcome.text += QStringLiteral("可在“清理记录”中查看或撤销。");
    return outcome;
}

ResultOutcome undoOutcome(int restoredCount, int errors)
{
    ResultOutcome outcome;
    outcome.title = errors > 0 ? QStringLiteral("已撤销一部分") : QStringLiteral("撤销完成");
    outcome.text = QStringLiteral("已将 %1 个文件恢复为独立副本。").arg(restoredCount);
    if (errors > 0)
        outcome.text += QStringLiteral("另有 %1 项未能恢复。").arg(errors);
    outcome.text += QStringLiteral("它们又是重复文件，重新扫描后会再次列出。");
    outcome.isOutdated = true;
    return outcome;
}

QString confirmUndoText(const QVariantMap &record)
{
    QString text = QStringLiteral("撤销会将本次合并的文件恢复为独立副本，可能无法完全还原原始时间戳"
                                  "等属性。是否继续？");
    if (!record.isEmpty())
        text +=
            QStringLiteral("\n\n最多恢复 %1 个文件，需要约 %2 的可用空间。合并后对内容的修改会"
                           "保留在每个副本中。")
                .arg(QString::number(countToRestore(record)), formatSize(bytesToRestore(record)));
    return text;
}

QString undoDoneText(int restoredCount, const QStringList &errors)
{
    QString text = QStringLiteral("成功恢复 %1 个独立副本。").arg(restoredCount);
    if (!errors.isEmpty())
        text += QStringLiteral("\n\n") + joinedLines(errors);
    return text;
}

QString recoveryText(const QStringList &restored, const QStringList &removed,
                     const QStringList &errors, const QStringList &unavailable)
{
    QStringList parts = {
        section(QStringLiteral("已恢复 %1 个文件到原来的位置："), restored),
        section(QStringLiteral("已完成合并，并清除 %1 个多余的临时备份："), removed),
        section(QStringLiteral("%1 项未能自动处理，请手动检查："), errors),
        section(QStringLiteral("%1 个文件夹现在无法访问（磁盘可能未连接或未解锁），清理日志已保留，"
                               "可以访问后会在下次启动时处理："),
                unavailable)};
    parts.removeAll(QString());
    if (parts.isEmpty())
        return QString();
    parts.prepend(QStringLiteral("上一次清理没有正常结束，遗留的文件已检查。"));
    return parts.join(QStringLiteral("\n\n"));
}

QString operationStatusText(const QString &status)
{
    return QString::fromUtf8(statusOf(status).text);
}

QColor operationStatusColor(const QString &status, const ThemeColors &colors)
{
    return colors.*statusOf(status).color;
}

StatusPill::Type operationStatusPill(const QString &status)
{
    return statusOf(status).pill;
}

bool mayUndo(const QString &status)
{
    return statusOf(status).mayUndo;
}

QString recordOverview(const QVariantMap &record)
{
    return QStringLiteral("处理 %1 组，释放 %2")
        .arg(record.value(QStringLiteral("groupCount")).toString(),
             formatSize(record.value(QStringLiteral("reclaimedBytes")).toLongLong()));
}

QString recordFilesText(const QVariantMap &record)
{
    QStringList groups;
    const QVariantList actions = record.value(QStringLiteral("actions")).toList();
    for (int i = 0; i < actions.size(); ++i) {
        const QVariantMap action = actions.at(i).toMap();
        const QStringList merged = action.value(QStringLiteral("mergedPaths")).toStringList();
        groups.append(QStringLiteral("第 %1 组\n").arg(i + 1) +
                      QStringLiteral("保留文件：\n%1\n")
                          .arg(action.value(QStringLiteral("keepPath")).toString()) +
                      QStringLiteral("已合并文件（%1 个）：\n").arg(merged.size()) +
                      merged.join(QLatin1Char('\n')));
    }
    return groups.join(QStringLiteral("\n\n"));
}

} // namespace wechatclean
