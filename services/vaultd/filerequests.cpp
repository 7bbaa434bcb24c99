#include "vaultd/filerequests.h"

#include "common/params.h"

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

FileRequests::FileRequests(ServiceHost &host, const VaultLayout &layout, const FileIndex &index,
                           VaultThread &vault)
    : m_layout(layout)
    , m_index(index)
    , m_vault(vault)
{
    using Respond = ServiceHost::Respond;
    host.handle(QStringLiteral("vault.listFiles"),
                [this](const QJsonObject &params) { return list(params); });
    host.handle(QStringLiteral("vault.restoreFiles"),
                ServiceHost::Handler([this](const QJsonObject &params, const Respond &respond) {
                    restore(params, respond);
                }));
    host.handle(QStringLiteral("vault.deleteFiles"),
                ServiceHost::Handler([this](const QJsonObject &params, const Respond &respond) {
                    remove(params, respond);
                }));
    host.handle(QStringLiteral("vault.clearAll"),
                ServiceHost::Handler([this](const QJsonObject &, const Respond &respond) {
                    m_vault.removeAll([respond](const VaultThread::Outcome &outcome) {
                        respond(replyOf(outcome, false));
                    });
                }));
}

Reply FileRequests::list(const QJsonObject &params) const
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
    const FileIndex::Page page = m_index.page(limit, offset, filter.toString());
    return Reply::ok(
        {{QStringLiteral("files"), page.files}, {QStringLiteral("totalCount"), page.totalCount}});
}

void FileRequests::restore(const QJsonObject &params, const ServiceHost::Respond &respond)
{
    QStringList ids;
    Reply refusal;
    QString error;
    const QJsonValue targetDir = params.value(QLatin1String("targetDir"));
    if (!readIds(params, &ids, &refusal))
        respond(refusal);
    else if (!targetDir.isString())
        respond(badParam(QStringLiteral("targetDir")));
    else if (!checkTarget(m_layout, targetDir.toString(), &error))
        respond(Reply::failure(kBadParamsCode, error));
    else
        m_vault.restore(ids, targetDir.toString(), [respond](const VaultThread::Outcome &outcome) {
            respond(replyOf(outcome, true));
        });
}

void FileRequests::remove(const QJsonObject &params, const ServiceHost::Respond &respond)
{
    QStringList ids;
    Reply refusal;
    if (readIds(params, &ids, &refusal))
        m_vault.remove(ids, [respond](const VaultThread::Outcome &outcome) {
            respond(replyOf(outcome, false));
        });
    else
        respond(refusal);
}

} // namespace vaultd
} // namespace services
