#include "cli/arguments.h"
#include "cli/commands.h"
#include "cli/servicerequest.h"

#include <QFileInfo>
#include <QJsonArray>

namespace cli {
namespace {

constexpr int filesPerPage = 500;

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

int listFiles(ServiceRequest *service, const QString &filter, Output *output)
{
    int listed = 0;
    for (int total = 1; listed < total;) {
        QJsonObject answer;
        QString error;
        if (!service->ask(QStringLiteral("vault.listFiles"),
                          {{QStringLiteral("limit"), filesPerPage},
                           {QStringLiteral("offset"), listed},
                           {QStringLiteral("filter"), filter}},
                          &answer, &error)) {
            output->error(error);
            return Failed;
        }
        const QJsonArray files = answer.value(QLatin1String("files")).toArray();
        total = answer.value(QLatin1String("totalCount")).toInt();
        if (files.isEmpty())
            break;
        for (const QJsonValue &value : files) {
            const QJsonObject file = value.toObject();
            const QString id = text(file, "id");
            output->row(file, id,
                        id + QLatin1Char('\t') +
                            sizeText(qint64(file.value(QLatin1String("fileSize")).toDouble())) +
                            QLatin1Char('\t') + text(file, "originalPath"));
        }
        listed += files.size();
    }
    return listed == 0 ? NothingFound : Success;
}

int restoreFiles(ServiceRequest *service, const QStringList &ids, const QString &target,
                 Output *output)
{
    QJsonObject answer;
    QString error;
    if (!service->ask(QStringLiteral("vault.restoreFiles"),
                      {{QStringLiteral("fileIds"), QJsonArray::fromStringList(ids)},
                       {QStringLiteral("targetDir"),
                        target.isEmpty() ? QString() : QFileInfo(target).absoluteFilePath()}},
                      &answer, &error)) {
        output->error(error);
        return Failed;
    }
    const int failed = answer.value(QLatin1String("failed")).toInt();
    output->row(answer, QString(),
                QStringLiteral("已恢复 %1 个文件，失败 %2 个")
                    .arg(answer.value(QLatin1String("restored")).toInt())
                    .arg(failed));
    return answer.value(QLatin1String("success")).toBool() ? Success : Failed;
}

} // namespace

int runVault(const QStringList &list)
{
    Arguments arguments(
        QStringLiteral("vault"),
        QStringLiteral("list [过滤词] 列出保险箱里的文件；restore 编号... 恢复它们"),
        QStringLiteral("list|restore ..."));
    arguments.add({QStringLiteral("to"), QStringLiteral("恢复到这个目录，而不是原来的位置"),
                   QStringLiteral("目录")});
    arguments.add({QStringLiteral("socket"), QStringLiteral("保护服务的套接字"),
                   QStringLiteral("名称"), QStringLiteral("morvane-vault-v1")});
    int exitCode = Success;
    if (!arguments.parse(list, 1, &exitCode))
        return exitCode;
    const QStringList words = arguments.words();
    Output output(arguments.format());
    ServiceRequest service(arguments.value(QStringLiteral("socket")));
    if (words.first() == QLatin1String("list") && words.size() <= 2)
        return listFiles(&service, words.value(1), &output);
    if (words.first() == QLatin1String("restore") && words.size() >= 2)
        return restoreFiles(&service, words.mid(1), arguments.value(QStringLiteral("to")), &output);
    return wrongUsage(QStringLiteral("需要 list，或者 restore 和文件编号"));
}

} // namespace cli
