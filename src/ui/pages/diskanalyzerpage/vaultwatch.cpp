#include "ui/pages/diskanalyzerpage/vaultwatch.h"

#include "ui/pages/diskanalyzerpage/mountinfo.h"
#include "ui/pages/diskanalyzerpage/pooltask.h"
#include "vault/vaultcontroller.h"

#include <QJsonObject>

namespace diskanalyzer {

void VaultWatch::setController(VaultController *controller)
{
    if (m_vault)
        m_vault->disconnect(this);
    m_vault = controller;
    m_coverage = VaultCoverage();
    ++m_configNumber;
    if (!controller)
        return;
    connect(controller, &VaultController::configUpdated, this, &VaultWatch::readConfig);
    connect(controller, &VaultController::statusUpdated, this, [this](const QJsonObject &status) {
        m_coverage.isActive = isProtectionActive(status);
    });
    connect(controller, &VaultController::connectionChanged, this, [this](bool connected) {
        m_coverage = VaultCoverage();
        ++m_configNumber;
        if (connected)
            refresh();
    });
    refresh();
}

void VaultWatch::refresh()
{
    if (!m_vault || !m_vault->isConnected())
        return;
    m_vault->refreshStatus();
    m_vault->refreshConfig();
}

void VaultWatch::readConfig(const QJsonObject &config)
{
    applyConfig(config, &m_coverage);
    // The plain list holds until the mounts are known.
    runInPool(
        this, [dirs = m_coverage.dirs] { return withMountAliases(dirs, readMounts()); },
        [this, number = ++m_configNumber](const QStringList &all) {
            if (number == m_configNumber)
                m_coverage.dirs = all;
        });
}

} // namespace diskanalyzer
