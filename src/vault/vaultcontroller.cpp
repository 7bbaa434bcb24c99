#include "vault/vaultcontroller.h"

#include "core/ipc/ipcclient.h"
#include "core/jsonnumber.h"

using core::ipc::IpcClient;

namespace {

constexpr int kFirstListLimit = 100;

QString noClientMessage()
{
    return QStringLiteral("IPC 客户端不可用");
}

QString messageOf(const QJsonObject &object)
{
    return object.value(QLatin1String("message")).toString();
}

bool succeeded(const QJsonObject &result)
{
    return result.value(QLatin1String("success")).toBool();
}

} // namespace

VaultController::VaultController(IpcClient *client, QObject *parent)
    : QObject(parent)
    , m_client(client)
{
    if (!m_client)
        return;
    connect(m_client, &IpcClient::eventReceived, this, &VaultController::onEventReceived);
    connect(m_client, &IpcClient::connected, this, [this] { emit connectionChanged(true); });
    connect(m_client, &IpcClient::disconnected, this, [this] { emit connectionChanged(false); });
    connect(m_client, &IpcClient::connectionError, this, [this] {
        if (!refusal().isEmpty())
            emit connectionChanged(false);
    });
}

bool VaultController::isConnected() const
{
    return m_client && m_client->isConnected();
}

QString VaultController::passwordRefusal() const
{
    return isConnected() && !m_client->mayHearSecrets()
               ? tr("守护进程不是以系统管理员身份运行，不能向其发送密码")
               : QString();
}

QString VaultController::refusal() const
{
    return m_client ? m_client->refusal() : QString();
}

void VaultController::connectToVaultDaemon()
{
    if (m_client)
        m_client->connectToService();
}

void VaultController::refreshStatus()
{
    request(QStringLiteral("getStatus"), QJsonObject(),
            [this](const QJsonObject &status) { emit statusUpdated(status); });
}

void VaultController::refreshConfig()
{
    request(QStringLiteral("getConfig"), QJsonObject(),
            [this](const QJsonObject &config) { emit configUpdated(config); });
}

void VaultController::refreshFileList(int limit, int offset, const QString &filter)
{
    QJsonObject params{{QStringLiteral("limit"), limit}, {QStringLiteral("offset"), offset}};
    if (!filter.isEmpty())
        params.insert(QStringLiteral("filter"), filter);
    request(QStringLiteral("listFiles"), params, [this](const QJsonObject &result) {
        emit fileListUpdated(result.value(QLatin1String("files")).toArray(),
                             result.value(QLatin1String("totalCount")).toInt());
    });
}

void VaultController::enableProtection()
{
    requestEnable(QStringLiteral("enable"));
}

void VaultController::enableGlobal()
{
    requestEnable(QStringLiteral("enableGlobal"));
}

void VaultController::requestEnable(const QString &operation)
{
    request(
        operation, QJsonObject(),
        [this](const QJsonObject &result) {
            emit enableCompleted(true, result.value(QLatin1String("deployMode")).toString(),
                                 result.value(QLatin1String("needReboot")).toBool());
        },
        [this] { emit enableCompleted(false, QString(), false); });
}

void VaultController::disableProtection()
{
    request(
        QStringLiteral("disable"), QJsonObject(),
        [this](const QJsonObject &) { emit disableCompleted(true); },
        [this] { emit disableCompleted(false); });
}

void VaultController::updateConfig(const QJsonObject &config)
{
    request(QStringLiteral("setConfig"), config, [this](const QJsonObject &) { refreshConfig(); });
}

void VaultController::restoreFiles(const QStringList &fileIds, const QString &targetDir)
{
    requestFileChange(QStringLiteral("restoreFiles"),
                      {{QStringLiteral("fileIds"), QJsonArray::fromStringList(fileIds)},
                       {QStringLiteral("targetDir"), targetDir}},
                      &VaultController::restoreCompleted);
}

void VaultController::deleteFiles(const QStringList &fileIds)
{
    requestFileChange(QStringLiteral("deleteFiles"),
                      {{QStringLiteral("fileIds"), QJsonArray::fromStringList(fileIds)}},
                      &VaultController::deleteCompleted);
}

void VaultController::clearAllFiles()
{
    requestFileChange(QStringLiteral("clearAll"), QJsonObject(), &VaultController::clearCompleted);
}

void VaultController::requestFileChange(const QString &operation, const QJsonObject &params,
                                        void (VaultController::*completed)(bool))
{
    request(
        operation, params,
        [this, completed](const QJsonObject &result) {
            const QPointer<VaultController> self(this);
            emit(this->*completed)(succeeded(result));
            if (self)
                refreshFileList(kFirstListLimit, 0, QString());
        },
        [this, completed] { emit(this->*completed)(false); });
}

void VaultController::authenticate(const QString &username, const QString &password)
{
    if (!m_client) {
        emit authenticateCompleted(false, noClientMessage());
        return;
    }
    if (!passwordRefusal().isEmpty()) {
        emit authenticateCompleted(false, passwordRefusal());
        return;
    }
    const QPointer<VaultController> self(this);
    m_client->sendRequest(
        QStringLiteral("vault.authenticate"),
        {{QStringLiteral("username"), username}, {QStringLiteral("password"), password}},
        [self](bool ok, const QJsonObject &result, const QJsonObject &error) {
            if (!self)
                return;
            if (ok && succeeded(result)) {
                emit self->authenticateCompleted(true, QString());
                return;
            }
            // A refusal comes as a plain reply or as an error.
            const QString message = messageOf(result);
            emit self->authenticateCompleted(false, message.isEmpty() ? messageOf(error) : message);
        });
}

void VaultController::getDeployMode()
{
    request(QStringLiteral("getDeployMode"), QJsonObject(), [this](const QJsonObject &result) {
        const QString key = QStringLiteral("deployMode");
        emit statusUpdated({{key, result.value(key)}});
    });
}

void VaultController::onEventReceived(const QString &name, const QJsonObject &data)
{
    if (name == QLatin1String("vault.fileProtected"))
        emit fileProtected(data.value(QLatin1String("file")).toObject());
    else if (name == QLatin1String("vault.fileExpired"))
        emit fileExpired(data.value(QLatin1String("fileId")).toString());
    else if (name == QLatin1String("vault.spaceWarning"))
        emit spaceWarning(core::toInt64(data.value(QLatin1String("usedBytes"))),
                          core::toInt64(data.value(QLatin1String("maxBytes"))));
}

void VaultController::request(const QString &operation, const QJsonObject &params,
                              const OnResult &onOk, const OnFailure &onFail)
{
    const auto fail = [this, operation, onFail](const QString &message) {
        // Whoever hears of the error may delete the controller.
        const QPointer<VaultController> self(this);
        emit operationError(operation, message);
        if (self && onFail)
            onFail();
    };
    if (!m_client) {
        fail(noClientMessage());
        return;
    }
    // The client may outlive the controller and answer later.
    const QPointer<VaultController> self(this);
    m_client->sendRequest(
        QStringLiteral("vault.") + operation, params,
        [self, onOk, fail](bool ok, const QJsonObject &result, const QJsonObject &error) {
            if (!self)
                return;
            if (ok)
                onOk(result);
            else
                fail(messageOf(error));
        });
}
