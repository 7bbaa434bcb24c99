#pragma once

#include "ui/pages/diskanalyzerpage/vaultcoverage.h"

#include <QObject>
#include <QPointer>

class QJsonObject;
class VaultController;

namespace diskanalyzer {

/// Keeps what the vault service says about its protection. Nothing is covered while the service is
/// not connected. GUI thread only.
class VaultWatch : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    /// Null for none. The controller is not owned.
    void setController(VaultController *controller);
    /// Asks the service for its present state; what it answers arrives later.
    void refresh();
    const VaultCoverage &coverage() const { return m_coverage; }

private:
    void readConfig(const QJsonObject &config);

    QPointer<VaultController> m_vault;
    VaultCoverage m_coverage;
    int m_configNumber = 0; ///< Tells the mounts read for this configuration from earlier ones.
};

} // namespace diskanalyzer
