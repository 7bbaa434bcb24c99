#include "ui/common/utils/sharetext.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSet>

namespace fileshare {

bool isActive(const QString &status)
{
    return status == QLatin1String("active");
}

bool isExpired(const QString &status)
{
    return status == QLatin1String("expired");
}

QString statusText(const QString &status)
{
    if (isActive(status))
        return QStringLiteral("共享中");
    if (isExpired(status))
        return QStringLiteral("已过期");
    return QStringLiteral("已停止");
}

QString permissionText(const QString &accessMode)
{
    return accessMode == QLatin1String("upload") ? QStringLiteral("允许上传")
                                                 : QStringLiteral("仅下载");
}

QString durationText(int minutes)
{
    if (minutes < 1)
        return QStringLiteral("不限时");
    return QStringLiteral("%1 %2").arg(QString::number(minutes), QStringLiteral("分钟"));
}

QString timeText(qint64 msSinceEpoch, const QString &format, const QString &none)
{
    return msSinceEpoch > 0 ? QDateTime::fromMSecsSinceEpoch(msSinceEpoch).toString(format) : none;
}

QStringList sessionActions(bool isActive)
{
    return {QStringLiteral("详情"), isActive ? QStringLiteral("停止") : QStringLiteral("开始"),
            QStringLiteral("删除")};
}

QString recordsText(int total, int active)
{
    if (total == 0)
        return QString();
    return QStringLiteral("%1 条记录，%2 个共享中")
        .arg(QString::number(total), QString::number(active));
}

QString displayName(const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    return name.isEmpty() ? path : name;
}

QString pathRowText(const QString &path)
{
    return QStringLiteral("%1  —  %2").arg(displayName(path), path);
}

QStringList newPaths(const QStringList &listed, const QStringList &candidates)
{
    QSet<QString> known = listed.toSet();
    QStringList added;
    for (const QString &candidate : candidates) {
        const QString path = QDir::cleanPath(candidate);
        if (!QDir::isAbsolutePath(path) || known.contains(path))
            continue;
        known.insert(path);
        added.append(path);
    }
    return added;
}

QStringList localPaths(const QList<QUrl> &urls)
{
    QStringList paths;
    for (const QUrl &url : urls) {
        if (url.isLocalFile() && url.host().isEmpty())
            paths.append(url.toLocalFile());
    }
    return paths;
}

QString pendingText(int count, int ignored, int port)
{
    QStringList parts;
    if (count > 0)
        parts << QStringLiteral("待共享 %1 项").arg(count);
    if (ignored > 0)
        parts << QStringLiteral("%1 项已在列表中").arg(ignored);
    if (port > 0)
        parts << QStringLiteral("端口 %1").arg(port);
    return parts.join(QStringLiteral(" · "));
}

QString linksText(const QStringList &urls)
{
    const QString links = urls.isEmpty()
                              ? QStringLiteral("未检测到可用的局域网地址，请检查网络连接。")
                              : urls.join(QLatin1Char('\n'));
    return QStringLiteral("局域网内其他设备可通过以下地址访问共享文件：") + QLatin1Char('\n') +
           links;
}

QString exposureText(bool hasPassword, const QString &accessMode)
{
    const QString who = hasPassword ? QStringLiteral("局域网内知道链接和密码的人")
                                    : QStringLiteral("未设密码：局域网内拿到链接的任何人");
    const QString what = accessMode == QLatin1String("upload")
                             ? QStringLiteral("都能下载这些文件，并向共享的文件夹上传文件。")
                             : QStringLiteral("都能下载这些文件。");
    return who + what;
}

QString startedText(int started, int failed)
{
    if (failed == 0)
        return QStringLiteral("已启动 %1 项共享。").arg(started);
    return QStringLiteral("已启动 %1 项共享，%2 项启动失败。")
               .arg(QString::number(started), QString::number(failed)) +
           QLatin1Char('\n') + QStringLiteral("请检查共享端口是否被其他程序占用。");
}

} // namespace fileshare
