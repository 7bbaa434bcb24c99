#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <functional>

namespace core {
namespace ipc {
class IpcClient;
}
} // namespace core

/// The program's front for the vault service: one method a request, one signal a result. Stateless;
/// lives on the GUI thread with its client, which it does not own.
class VaultController : public QObject
{
    Q_OBJECT

public:
    explicit VaultController(core::ipc::IpcClient *client, QObject *parent = nullptr);

    /// False without a client, too.
    bool isConnected() const;
    /// Why the client has refused the service, in words for the user; empty if it has not.
    QString refusal() const;
    /// Why the service that is connected is told no password, in words for the user; empty if it
    /// is.
    QString passwordRefusal() const;
    /// Starts connecting; does nothing without a client. Does not block.
    void connectToVaultDaemon();

    // Each asks the service for one thing and ends in the signal named after it, or in
    // operationError() under the word of the request, before the signal with its false result.
    void refreshStatus();
    void refreshConfig();
    /// An empty filter asks for all files.
    void refreshFileList(int limit, int offset, const QString &filter);
    void enableProtection();
    void enableGlobal();
    void disableProtection();
    /// All of the configuration; followed by refreshConfig(), so that what comes back is what the
    /// service now holds.
    void updateConfig(const QJsonObject &config);
    // The list is fetched anew after each of these three.
    void restoreFiles(const QStringList &fileIds, const QString &targetDir);
    void deleteFiles(const QStringList &fileIds);
    void clearAllFiles();
    /// Ends in authenticateCompleted() alone, whichever way the service refuses. The password is
    /// sent to a service of root only.
    void authenticate(const QString &username, const QString &password);
    /// Ends in a statusUpdated() that holds "deployMode" and nothing else.
    void getDeployMode();

signals:
    void statusUpdated(const QJsonObject &status);
    void configUpdated(const QJsonObject &config);
    void fileListUpdated(const QJsonArray &files, int totalCount);
    void fileProtected(const QJsonObject &file);
    void fileExpired(const QString &fileId);
    void spaceWarning(qint64 usedBytes, qint64 maxBytes); ///< Bytes.
    void restoreCompleted(bool success);
    void deleteCompleted(bool success);
    void clearCompleted(bool success);
    void enableCompleted(bool success, const QString &deployMode, bool needReboot);
    void disableCompleted(bool success);
    void operationError(const QString &operation, const QString &message);
    void connectionChanged(bool connected); ///< False also when the service was refused.
    void authenticateCompleted(bool success, const QString &message);

private slots:
    void onEventReceived(const QString &name, const QJsonObject &data);

private:
    using OnResult = std::function<void(const QJsonObject &)>;
    using OnFailure = std::function<void()>;

    /// Sends "vault." + `operation`; a failure ends in operationError() under the same word and
    /// then in `onFail`.
    void request(const QString &operation, const QJsonObject &params, const OnResult &onOk,
                 const OnFailure &onFail = OnFailure());
    void requestEnable(const QString &operation);
    /// A change of the files held: reports "success" of the result and fetches the list.
    void requestFileChange(const QString &operation, const QJsonObject &params,
                           void (VaultController::*completed)(bool));

    QPointer<core::ipc::IpcClient> m_client;
};
