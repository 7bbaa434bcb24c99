#include "vaultd/filerequests.h"

#include "common/params.h"
#include "vaultd/rights/authenticator.h"
#include "vaultd/users/vaulthandler.h"

#include <QJsonArray>

namespace services {
namespace vaultd {

namespace {

constexpr int kDefaultLimit = 100;

const QString kFileIds = QStringLiteral("fileIds");

/// Each id once, in the order given. False, with the refusal, if one cannot be an id.
bool readIds(const QJsonObject &params, QStringList *ids, Reply *refusal)
{
    const QJsonValue value = params.value(kFileIds);
    *refusal = badParam(kFileIds);
    if (!value.isArray())
        return false;
    const QJsonArray array = value.toArray();
    for (const QJsonValue &entry : array) {
        if (!isId(entry.toString())) {
            *refusal =
                Reply::failure(kBadParamsCode, QStringLiteral("参数 fileIds 含无效的文件标识"));
            return false;
        }
        ids->append(entry.toString());
    }
    ids->removeDuplicates();
    if (ids->isEmpty())
        *refusal = Reply::failure(kBadParamsCode, QStringLiteral("没有选择文件"));
    return !ids->isEmpty();
}

QJsonArray pairs(const QHash<QString, QString> &texts, const QString &key)
{
    QJsonArray array;
    for (auto it = texts.cbegin(); it != texts.cend(); ++it)
        array.append(QJsonObject{{QStringLiteral("id"), it.key()}, {key, it.value()}});
    return array;
}

Reply replyOf(const VaultThread::Outcome &outcome, bool isRestore)
{
    QJsonObject data{
        {QStringLiteral("success"), outcome.failures.isEmpty()},
        {QStringLiteral("failed"), pairs(outcome.failures, QStringLiteral("message"))}};
    if (isRestore)
        data.insert(QStringLiteral("restored"), pairs(outcome.placed, QStringLiteral("path")));
    return Reply::ok(data);
}

} // namespace

FileRequests::FileRequests(ServiceHost &host, VaultUsers &users, const Authenticator &authenticator)
{
    using Ask = const Request &;
    const auto on = [&host, &users](const char *method, const VaultHandler &handler) {
        handleForVault(host, QLatin1String(method), users, handler);
    };
    on("vault.listFiles", [](UserVault *vault, Ask request, const Respond &respond) {
        respond(list(*vault, request.params));
    });
    on("vault.restoreFiles", [](UserVault *vault, Ask request, const Respond &respond) {
        restore(vault, request.params, respond);
    });
    on("vault.deleteFiles",
       [&authenticator](UserVault *vault, Ask request, const Respond &respond) {
           if (authenticator.admit(request, respond))
               remove(vault, request.params, respond);
       });
    on("vault.clearAll", [&authenticator](UserVault *vault, Ask request, const Respond &respond) {
        if (authenticator.admit(request, respond))
            vault->thread().removeAll([respond](const VaultThread::Outcome &outcome) {
                respond(replyOf(outcome, false));
            });
    });
}

Reply FileRequests::list(const UserVault &vault, const QJsonObject &params)
{
    const int limit = countParam(params, QStringLiteral("limit"), kDefaultLimit);
    const int offset = countParam(params, QStringLiteral("offset"), 0);
    const QJsonValue filter = params.value(QLatin1String("filter"));
    if (limit < 0)
        return badParam(QStringLiteral("limit"));
    if (offset < 0)
        return badParam(QStringLiteral("offset"));
    if (!filter.isUndefined() && !filter.isString())
        return badParam(QStringLiteral("filter"));
    const FileIndex::Page page = vault.index().page(limit, offset, filter.toString());
    return Reply::ok(
        {{QStringLiteral("files"), page.files}, {QStringLiteral("totalCount"), page.totalCount}});
}

void FileRequests::restore(UserVault *vault, const QJsonObject &params, const Respond &respond)
{
    QStringList ids;
    Reply refusal;
    QString error;
    const QJsonValue targetDir = params.value(QLatin1String("targetDir"));
    if (!readIds(params, &ids, &refusal))
        respond(refusal);
    else if (!targetDir.isString())
        respond(badParam(QStringLiteral("targetDir")));
    else if (!checkTarget(vault->layout(), targetDir.toString(), &error))
        respond(Reply::failure(kBadParamsCode, error));
    else
        vault->thread().restore(
            ids, targetDir.toString(),
            [respond](const VaultThread::Outcome &outcome) { respond(replyOf(outcome, true)); });
}

void FileRequests::remove(UserVault *vault, const QJsonObject &params, const Respond &respond)
{
    QStringList ids;
    Reply refusal;
    if (readIds(params, &ids, &refusal))
        vault->thread().remove(ids, [respond](const VaultThread::Outcome &outcome) {
            respond(replyOf(outcome, false));
        });
    else
        respond(refusal);
}

} // namespace vaultd
} // namespace services
