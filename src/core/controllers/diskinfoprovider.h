#pragma once

#include "core/controllers/servicecontroller.h"
#include "ui/common/models/partitionmodels.h"

#include <QJsonArray>

namespace core {
namespace controllers {

/// Asks the recovery service for the machine's disks and partitions.
class DiskInfoProvider : public ServiceController
{
    Q_OBJECT

public:
    explicit DiskInfoProvider(ipc::IpcClient *client, QObject *parent = nullptr);

    /// Ends in one of the two signals; without a connection inside this call. Of two that run at
    /// once, the later answer wins.
    void refresh();

    /// The service's `groups`. Missing keys give empty texts, 0 and false.
    static QVector<ui::common::models::DiskGroup> parseGroups(const QJsonArray &groups);

signals:
    void diskGroupsReady(const QVector<ui::common::models::DiskGroup> &groups);
    void loadFailed(const QString &reason);
};

} // namespace controllers
} // namespace core
