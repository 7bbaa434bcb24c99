#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/stopsignal.h"
#include "share/filesharecontroller.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QTemporaryDir>

#include <cstdio>

namespace cli {
namespace {

/// A line of standard input without its end.
QString readPassword()
{
    char line[1024];
    if (!std::fgets(line, sizeof line, stdin))
        return QString();
    return QString::fromLocal8Bit(line).remove(QLatin1Char('\n'));
}

} // namespace

int runShare(const QStringList &list)
{
    Arguments arguments(QStringLiteral("share"),
                        QStringLiteral("在局域网内共享文件和目录，直到按下 Ctrl+C"),
                        QStringLiteral("路径..."));
    arguments.add({QStringLiteral("port"), QStringLiteral("端口"), QStringLiteral("N")});
    arguments.add(
        {QStringLiteral("minutes"), QStringLiteral("多少分钟后结束"), QStringLiteral("N")});
    arguments.add({QStringLiteral("upload"), QStringLiteral("允许上传")});
    arguments.add({QStringLiteral("password"), QStringLiteral("从标准输入读取访问密码")});
    int exitCode = Success;
    if (!arguments.parse(list, 1, &exitCode))
        return exitCode;
    const qint64 port = arguments.number(QStringLiteral("port"), 0);
    const qint64 minutes = arguments.number(QStringLiteral("minutes"), 0);
    if (port < 0 || port > 65535 || minutes < 0 || minutes > 1000000)
        return wrongUsage(QStringLiteral("--port 和 --minutes 需要一个数"));
    QStringList paths;
    for (const QString &word : arguments.words()) {
        if (!QFileInfo::exists(word))
            return wrongUsage(QStringLiteral("不存在：%1").arg(word));
        paths.append(QFileInfo(word).absoluteFilePath());
    }
    const QString password = arguments.has(QStringLiteral("password")) ? readPassword() : QString();
    if (arguments.has(QStringLiteral("password")) && password.isEmpty())
        return wrongUsage(QStringLiteral("标准输入里没有密码"));

    const StopSignal stop([] {
        QMetaObject::invokeMethod(QCoreApplication::instance(), "quit", Qt::QueuedConnection);
    });
    Output output(arguments.format());
    // Records of its own: those of the program belong to the program, which may be running.
    const QTemporaryDir records;
    FileShareController shares(nullptr, records.filePath(QStringLiteral("shares.db")));
    QString error;
    if (port > 0 && !shares.setSharePort(int(port), &error)) {
        output.error(error);
        return Failed;
    }
    const QString id =
        shares.createShare(paths, password, int(minutes),
                           shares.lastUsedDefaults().value(QStringLiteral("max_clients")).toInt(),
                           arguments.has(QStringLiteral("upload")) ? QStringLiteral("upload")
                                                                   : QStringLiteral("download"));
    if (id.isEmpty()) {
        output.error(QStringLiteral("无法开始共享，端口 %1 可能被占用").arg(shares.sharePort()));
        return Failed;
    }
    QStringList urls = shares.shareUrls(id);
    if (urls.isEmpty())
        urls.append(QStringLiteral("http://127.0.0.1:%1/s/%2/").arg(shares.sharePort()).arg(id));
    for (const QString &url : qAsConst(urls))
        output.row({{QStringLiteral("url"), url}}, url);
    output.flush();
    QObject::connect(&shares, &FileShareController::shareExpired, QCoreApplication::instance(),
                     &QCoreApplication::quit);
    return QCoreApplication::exec();
}

} // namespace cli
