#include "wechat/preflight.h"

#include <QFileInfo>
#include <QProcess>

namespace wechat {

namespace {

constexpr int kProcessListMs = 3000;

bool namesClient(const QString &line)
{
    static const QStringList words{QStringLiteral("wechat"), QStringLiteral("weixin"),
                                   QStringLiteral("wxwork"), QStringLiteral("wecom")};
    const QString lower = line.toLower();
    for (const QString &word : words) {
        if (lower.contains(word))
            return true;
    }
    return false;
}

void checkReplaced(FileOperations &operations, const QString &keepPath, bool keptExists,
                   const QString &path, PreflightResult *result)
{
    const QFileInfo info(path);
    if (!info.exists())
        result->issues.append(QStringLiteral("副本文件不存在：%1").arg(path));
    else if (info.isSymLink())
        result->warnings.append(QStringLiteral("已跳过现有软链接：%1").arg(path));
    else if (keptExists && !sameFileSystem(operations, keepPath, path))
        result->issues.append(
            QStringLiteral("以下文件与保留文件不在同一分区，当前版本不支持跨分区合并：%1")
                .arg(path));
}

} // namespace

bool isWechatRunning(QStringList *processes)
{
    QProcess ps;
    ps.start(QStringLiteral("ps"), {QStringLiteral("-eo"), QStringLiteral("comm,args")},
             QIODevice::ReadOnly);
    if (!ps.waitForFinished(kProcessListMs)) {
        ps.kill();
        ps.waitForFinished(kProcessListMs);
        return false;
    }
    if (ps.exitStatus() != QProcess::NormalExit || ps.exitCode() != 0)
        return false;
    const QStringList lines =
        QString::fromLocal8Bit(ps.readAllStandardOutput()).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        if (namesClient(line))
            processes->append(line.trimmed());
    }
    return !processes->isEmpty();
}

PreflightResult checkActions(FileOperations &operations, const QList<CleanAction> &actions)
{
    PreflightResult result;
    for (const CleanAction &action : actions) {
        const bool keptExists = QFileInfo::exists(action.keepPath);
        if (!keptExists)
            result.issues.append(QStringLiteral("保留文件不存在：%1").arg(action.keepPath));
        for (const QString &path : action.replacePaths)
            checkReplaced(operations, action.keepPath, keptExists, path, &result);
    }
    return result;
}

} // namespace wechat
