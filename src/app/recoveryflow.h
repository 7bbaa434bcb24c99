#pragma once

#include "core/controllers/recoverytarget.h"
#include "ui/pages/recoveryprogresspage.h"

#include <QObject>
#include <QStringList>
#include <QVector>

#include <functional>

class RecoveryWorkflowWindow;
class ScanResultsPage;

namespace core {
namespace controllers {
class RecoveryController;
}
namespace ipc {
class IpcClient;
}
} // namespace core

/// Leads from the ticked files to a running recovery, after a look at the place that they are to be
/// written to, and binds the service's recovery events to the page of the task that they name. What
/// it is given outlives it. GUI thread only.
class RecoveryFlow : public QObject
{
    Q_OBJECT

public:
    /// Looks at an output directory; runs on another thread.
    using TargetProbe = std::function<core::controllers::RecoveryTargetFacts(const QString &base)>;

    RecoveryFlow(core::ipc::IpcClient *client, core::controllers::RecoveryController *recoveries,
                 RecoveryWorkflowWindow *window, QObject *parent = nullptr);

    /// For tests: what stands in for the machine's mounts and free space.
    void setTargetProbe(const TargetProbe &probe) { m_probe = probe; }

private:
    /// What the user asked for, as it stood at that moment.
    struct Demand
    {
        QString sessionId;
        QStringList fileIds;
        QString conflictPolicy;
        QVector<RecoveryProgressPage::File> files;
        core::controllers::RecoveryDemand target;
    };

    void wireTask();
    void wireEnd();
    void wireLink();
    /// Shows how the recovery stands that was shown when the link broke.
    void resume(const QString &recoveryId, const QJsonObject &detail);
    void check(const QString &sessionId, const QStringList &fileIds, const QString &outputPath,
               const QString &conflictPolicy);
    void onChecked(const Demand &demand, const core::controllers::RecoveryTargetFacts &facts);
    void start(const Demand &demand, const QString &outputDir);
    QVector<RecoveryProgressPage::File> filesFor(const QStringList &fileIds) const;
    bool isShown(const QString &recoveryId) const;

    core::ipc::IpcClient *m_client;
    core::controllers::RecoveryController *m_recoveries;
    RecoveryWorkflowWindow *m_window;
    ScanResultsPage *m_scanPage;
    RecoveryProgressPage *m_page;
    TargetProbe m_probe;
    int m_latestCheck = 0; ///< Earlier ones that are still under way come to nothing.
};
