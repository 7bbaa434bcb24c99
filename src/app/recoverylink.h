#pragma once

#include "ui/common/models/partitionmodels.h"

#include <QObject>

class PartitionSelectPage;
class QTimer;

namespace core {
namespace controllers {
class DiskInfoProvider;
}
namespace ipc {
class IpcClient;
}
} // namespace core

/// Keeps the link to the recovery service alive, without end, and shows the machine's disks as long
/// as they are known; otherwise the sample disks. GUI thread only.
class RecoveryLink : public QObject
{
    Q_OBJECT

public:
    /// All of them outlive the link. Connects nothing until somebody calls connectToService() on
    /// the client.
    RecoveryLink(core::ipc::IpcClient *client, core::controllers::DiskInfoProvider *disks,
                 PartitionSelectPage *page, QObject *parent = nullptr);

    /// Whether the page shows disks that the service has named, so that a scan makes sense.
    bool hasRealDisks() const { return m_hasRealDisks; }

signals:
    /// The service is there (again): what was asked of it before may be out of date.
    void serviceConnected();

private:
    void onConnected();
    void onDisksReady(const QVector<ui::common::models::DiskGroup> &groups);
    /// At the user's wish.
    void refresh();
    void onTimeout();
    void startRetrying();
    void showSamples(const QString &reason);

    core::ipc::IpcClient *m_client;
    core::controllers::DiskInfoProvider *m_disks;
    PartitionSelectPage *m_page;
    QTimer *m_timer;
    bool m_hasRealDisks = false;
};
