#include "ui/pages/diskanalyzerpage/analyzertext.h"

namespace diskanalyzer {

namespace {

constexpr qint64 kKilo = 1024;
constexpr int kUnits = 3;

QString vaultFilesText(int count)
{
    if (count == 0)
        return QString();
    return QStringLiteral("\n\n⚠ 其中 %1 个文件位于受保护目录下，删除后将进入保险箱而非永久删除。")
        .arg(count);
}

} // namespace

QString formatSize(qint64 bytes)
{
    if (bytes < kKilo)
        return QStringLiteral("%1 B").arg(qMax<qint64>(0, bytes));
    static const char *const kNames[kUnits] = {"KB", "MB", "GB"};
    double value = double(bytes) / kKilo;
    int unit = 0;
    // 1023.95 would print as "1024.0", so the next unit starts where the rounding does.
    while (value >= 1023.95 && unit < kUnits - 1) {
        value /= kKilo;
        ++unit;
    }
    return QStringLiteral("%1 %2").arg(value, 0, 'f', 1).arg(QLatin1String(kNames[unit]));
}

double sharePercent(qint64 part, qint64 whole)
{
    if (whole <= 0 || part <= 0)
        return 0;
    return qMin(100.0, double(part) * 100.0 / double(whole));
}

QString percentText(double percent)
{
    if (percent > 0 && percent < 0.05)
        return QStringLiteral("<0.1%");
    return QStringLiteral("%1%").arg(percent, 0, 'f', 1);
}

QString selectedFilesText(int count, qint64 bytes)
{
    return QStringLiteral("选中 %1 个文件，共 %2").arg(count).arg(formatSize(bytes));
}

QString deleteOneText(const QString &path, bool toVault)
{
    // In two steps: the path may itself hold "%1".
    QString text = QStringLiteral("确定要删除文件 %1 吗？").arg(path) +
                   QStringLiteral("\n\n移到回收站：之后可以还原，清空回收站后才会释放空间。");
    if (toVault)
        text += QStringLiteral("\n\n⚠ 该文件位于受保护目录下，删除后将进入保险箱而非永久删除。");
    else
        text += QStringLiteral("\n\n永久删除：文件无法恢复。");
    return text;
}

QString deleteManyText(int count, int vaultCount)
{
    return QStringLiteral("移到回收站：之后可以还原，清空回收站后才会释放空间。\n\n") +
           deleteLabel(count, vaultCount) +
           QStringLiteral("：即将删除 %1 个文件，此操作不可撤销。").arg(count) +
           vaultFilesText(vaultCount);
}

QString deleteLabel(int count, int vaultCount)
{
    return vaultCount == count ? QStringLiteral("删除") : QStringLiteral("永久删除");
}

QString deletedFilesText(int count, int vaultCount)
{
    if (vaultCount == count)
        return vaultFilesText(vaultCount);
    if (vaultCount > 0)
        return vaultFilesText(vaultCount) + QStringLiteral("其余文件将被永久删除，无法恢复。");
    return QStringLiteral("\n\n文件将被永久删除，无法恢复。");
}

} // namespace diskanalyzer
