#include "wechat/preflight.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <cerrno>

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
    struct stat info;
    if (operations.stat(QFile::encodeName(path), &info) != 0) {
        const QString reason = isGone(errno) ? QStringLiteral("副本文件不存在：%1")
                                             : QStringLiteral("无法访问副本文件：%1");
        result->issues.append(reason.arg(path));
    } else if (QFileInfo(path).isSymLink()) {
        result->warnings.append(QStringLiteral("已跳过现有软链接：%1").arg(path));
    } else if (keptExists && !sameFileSystem(operations, keepPath, path)) {
        result->issues.append(
            QStringLiteral("以下文件与保留文件不在同一分区，当前版本不支持跨分区合并：%1")
                .arg(path));
        result->elsewhere.append(path);
    }
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
        struct stat info;
        const bool keptExists = operations.stat(QFile::encodeName(action.keepPath), &info) == 0;
        if (!keptExists) {
            const QString reason = isGone(errno) ? QStringLiteral("保留文件不存在：%1")
                                                 : QStringLiteral("无法读取保留文件：%1");
            result.issues.append(reason.arg(action.keepPath));
        }
        for (const QString &path : action.replacePaths)
            checkReplaced(operations, action.keepPath, keptExists, path, &result);
    }
    return result;
}

} // namespace wechat
