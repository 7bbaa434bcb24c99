#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/servicerequest.h"
#include "cli/stopsignal.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QTimer>

namespace cli {
namespace {

constexpr int filesPerPage = 1000;

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

/// A request whose failure ends the command.
bool ask(ServiceRequest *service, Output *output, const char *method, const QJsonObject &params,
         QJsonObject *answer)
{
    QString error;
    if (service->ask(QString::fromLatin1(method), params, answer, &error))
        return true;
    output->error(error);
    return false;
}

int listDisks(ServiceRequest *service, Output *output)
{
    QJsonObject answer;
    if (!ask(service, output, "disk.enumerate", QJsonObject(), &answer))
        return Failed;
    int rows = 0;
    const QJsonArray groups = answer.value(QLatin1String("groups")).toArray();
    for (const QJsonValue &group : groups) {
        const QString disk = text(group.toObject(), "diskTitle");
        const QJsonArray partitions = group.toObject().value(QLatin1String("partitions")).toArray();
        for (const QJsonValue &value : partitions) {
            QJsonObject partition = value.toObject();
            partition.insert(QStringLiteral("disk"), disk);
            // "/dev/sda1 · ext4": the device comes first.
            const QString device = text(partition, "pathAndFs").section(QLatin1Char(' '), 0, 0);
            output->row(partition, device,
                        text(partition, "pathAndFs") + QLatin1Char('\t') +
                            text(partition, "total") + QLatin1Char('\t') +
                            text(partition, "title") + QLatin1Char('\t') + disk);
            ++rows;
        }
    }
    return rows == 0 ? NothingFound : Success;
}

/// Runs until an event of the task says that it has ended; `stopMethod` asks it to.
class Task
{
public:
    Task(ServiceRequest *service, Output *output, const char *kind, const char *idKey)
        : m_service(service)
        , m_output(output)
        , m_kind(QLatin1String(kind))
        , m_idKey(QLatin1String(idKey))
    {
        QObject::connect(service->client(), &core::ipc::IpcClient::eventReceived, &m_loop,
                         [this](const QString &name, const QJsonObject &data) {
                             m_events.append({name, data});
                             take();
                         });
        QObject::connect(service->client(), &core::ipc::IpcClient::disconnected, &m_loop,
                         [this] { end(Failed, QStringLiteral("与服务的连接已断开")); });
    }

    std::function<void(const QString &event, const QJsonObject &data)> onEvent;

    int wait(const QString &id)
    {
        m_id = id;
        take();
        if (!m_hasEnded)
            m_loop.exec();
        if (!m_error.isEmpty())
            m_output->error(m_error);
        return m_exitCode;
    }

    /// From any thread.
    void stop()
    {
        QMetaObject::invokeMethod(
            &m_loop,
            [this] {
                m_service->client()->sendRequest(m_kind + QLatin1String("stop"), {{m_idKey, m_id}});
            },
            Qt::QueuedConnection);
    }

private:
    /// Events may come before the answer that names the task.
    void take()
    {
        if (m_id.isEmpty())
            return;
        for (const auto &event : qAsConst(m_events)) {
            if (event.second.value(m_idKey).toString() != m_id || !event.first.startsWith(m_kind))
                continue;
            const QString name = event.first.mid(m_kind.size());
            if (onEvent)
                onEvent(name, event.second);
            const QJsonObject error = event.second.value(QLatin1String("error")).toObject();
            if (name == QLatin1String("completed"))
                end(Success, QString());
            else if (name == QLatin1String("error"))
                end(error.value(QLatin1String("code")).toInt() == stoppedCode ? Stopped : Failed,
                    text(error, "message"));
        }
        m_events.clear();
    }

    void end(int exitCode, const QString &error)
    {
        if (m_hasEnded)
            return;
        m_hasEnded = true;
        m_exitCode = exitCode;
        m_error = error;
        m_loop.quit();
    }

    static constexpr int stoppedCode = 1002;

    ServiceRequest *m_service;
    Output *m_output;
    QString m_kind;
    QString m_idKey;
    QString m_id;
    QEventLoop m_loop;
    QVector<QPair<QString, QJsonObject>> m_events;
    bool m_hasEnded = false;
    int m_exitCode = Failed;
    QString m_error;
};

void printFound(const QJsonObject &file, Output *output)
{
    const QString id = text(file, "fileId");
    output->row(
        file, id,
        id + QLatin1Char('\t') + sizeText(qint64(file.value(QLatin1String("size")).toDouble())) +
            QLatin1Char('\t') + text(file, "probability") + QLatin1Char('\t') + text(file, "path"));
}

int scan(ServiceRequest *service, Output *output, const QString &device, bool deep)
{
    QJsonObject answer;
    if (!ask(service, output, "disk.prepareForScan", {{QStringLiteral("devicePath"), device}},
             &answer))
        return Failed;
    Task task(service, output, "scan.", "sessionId");
    int found = 0;
    task.onEvent = [&](const QString &event, const QJsonObject &data) {
        if (event == QLatin1String("progress")) {
            output->progress(QStringLiteral("%1% %2")
                                 .arg(data.value(QLatin1String("progress")).toDouble(), 0, 'f', 1)
                                 .arg(text(data, "phaseText")));
        }
        const QJsonArray files = data.value(QLatin1String("files")).toArray();
        for (const QJsonValue &file : files)
            printFound(file.toObject(), output);
        found += files.size();
    };
    const StopSignal stop([&task] { task.stop(); });
    if (!ask(
            service, output, "scan.start",
            {{QStringLiteral("devicePath"), device},
             {QStringLiteral("scanMode"), deep ? QStringLiteral("deep") : QStringLiteral("quick")}},
            &answer))
        return Failed;
    const QString session = text(answer, "sessionId");
    const int exitCode = task.wait(session);
    output->row({{QStringLiteral("sessionId"), session}, {QStringLiteral("filesFound"), found}},
                QString(), QStringLiteral("会话 %1，找到 %2 个文件").arg(session).arg(found));
    return exitCode == Success && found == 0 ? NothingFound : exitCode;
}

bool allFiles(ServiceRequest *service, Output *output, const QString &session, QStringList *ids)
{
    for (int total = 1; ids->size() < total;) {
        QJsonObject answer;
        if (!ask(service, output, "session.getFiles",
                 {{QStringLiteral("sessionId"), session},
                  {QStringLiteral("offset"), ids->size()},
                  {QStringLiteral("limit"), filesPerPage}},
                 &answer))
            return false;
        const QJsonArray files = answer.value(QLatin1String("files")).toArray();
        total = files.isEmpty() ? 0 : answer.value(QLatin1String("total")).toInt();
        for (const QJsonValue &file : files)
            ids->append(text(file.toObject(), "fileId"));
    }
    return true;
}

int recover(ServiceRequest *service, Output *output, const QString &session,
            const QString &directory, QStringList ids)
{
    if (ids.isEmpty() && !allFiles(service, output, session, &ids))
        return Failed;
    if (ids.isEmpty())
        return NothingFound;
    Task task(service, output, "recovery.", "recoveryId");
    bool allWell = true;
    task.onEvent = [&](const QString &event, const QJsonObject &data) {
        const QString status = text(data, "status");
        if (event == QLatin1String("fileStatus") && status != QLatin1String("running")) {
            allWell = allWell && status == QLatin1String("succeeded");
            output->row(data, text(data, "fileId"),
                        text(data, "fileId") + QLatin1Char('\t') + status + QLatin1Char('\t') +
                            text(data, "detail"));
        } else if (event == QLatin1String("progress")) {
            output->progress(QStringLiteral("%1 / %2")
                                 .arg(data.value(QLatin1String("processed")).toInt())
                                 .arg(data.value(QLatin1String("total")).toInt()));
        }
    };
    const StopSignal stop([&task] { task.stop(); });
    QJsonObject answer;
    if (!ask(service, output, "recovery.start",
             {{QStringLiteral("sessionId"), session},
              {QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
              {QStringLiteral("outputDir"), QFileInfo(directory).absoluteFilePath()},
              {QStringLiteral("conflictPolicy"), QStringLiteral("rename")}},
             &answer))
        return Failed;
    const int exitCode = task.wait(text(answer, "recoveryId"));
    return exitCode == Success && !allWell ? Failed : exitCode;
}

} // namespace

int runRecover(const QStringList &list)
{
    Arguments arguments(
        QStringLiteral("recover"),
        QStringLiteral("list 列出磁盘和分区；scan 设备 扫描；run 会话 目录 [编号...] 恢复到目录"),
        QStringLiteral("list|scan|run ..."));
    arguments.add({QStringLiteral("deep"), QStringLiteral("深度扫描，按内容查找")});
    arguments.add({QStringLiteral("socket"), QStringLiteral("恢复服务的套接字"),
                   QStringLiteral("名称"), QStringLiteral("morvane-service-v1")});
    int exitCode = Success;
    if (!arguments.parse(list, 1, &exitCode))
        return exitCode;
    const QStringList words = arguments.words();
    Output output(arguments.format());
    ServiceRequest service(arguments.value(QStringLiteral("socket")));
    if (words.first() == QLatin1String("list") && words.size() == 1)
        return listDisks(&service, &output);
    if (words.first() == QLatin1String("scan") && words.size() == 2)
        return scan(&service, &output, words.at(1), arguments.has(QStringLiteral("deep")));
    if (words.first() == QLatin1String("run") && words.size() >= 3)
        return recover(&service, &output, words.at(1), words.at(2), words.mid(3));
    return wrongUsage(QStringLiteral("需要 list、scan 设备，或者 run 会话 目录"));
}

} // namespace cli
