#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QObject>

#include <functional>

class PartitionSelectPage;
class RecoveryWorkflowWindow;
class ScanResultsPage;

namespace core {
namespace controllers {
class RecoveryController;
class ScanController;
} // namespace controllers
namespace ipc {
class IpcClient;
}
} // namespace core

/// Leads from the chosen partition to a scan in the workflow window, and binds the service's scan
/// events to the page of the session that they name. What it is given outlives it. GUI thread only.
class ScanFlow : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        core::ipc::IpcClient *client;
        core::controllers::ScanController *scans;
        core::controllers::RecoveryController *recoveries;
        PartitionSelectPage *partitions;
        RecoveryWorkflowWindow *window;
        /// Whether the partition page shows disks that the service has named.
        std::function<bool()> hasRealDisks;
    };

    explicit ScanFlow(const Parts &parts, QObject *parent = nullptr);

private:
    void wireScan();
    void wireRequests();
    void wireFullList();
    void startFromPartitionPage();
    /// Notices stand over `asker`.
    void start(QWidget *asker, const QString &device, const QString &fileSystem);
    bool mayReplaceShownWork(QWidget *asker) const;
    void onPrepared(const QString &device, const QString &fileSystem, const QJsonObject &data);
    void onCompleted(const QString &sessionId, const QJsonObject &summary);
    /// Asks for the session's full list, which brings back what was dropped in a pause.
    void fetchFullList(const QString &sessionId);
    /// On a new connection: takes up the scan that the page showed when the last one broke.
    void askAfterLostScan();
    void resume(const QString &sessionId, const QJsonObject &detail);
    void onQueryFailed(const QString &method, const QString &sessionId, const QString &message);
    void onFullList(const QString &sessionId, const QJsonArray &files);
    bool isShown(const QString &sessionId) const;

    Parts m_parts;
    ScanResultsPage *m_page;
    bool m_isPreparing = false;
    QString m_awaitedList; ///< Session whose full list was asked for; empty if none.
};
