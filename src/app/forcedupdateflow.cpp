#include "app/forcedupdateflow.h"

#include "core/controllers/upgrade/upgradecontroller.h"
#include "ui/pages/forcedupdatedialog.h"

#include <QCoreApplication>
#include <QDebug>
#include <QTimer>

using core::controllers::upgrade::UpgradeController;

namespace {

// Long enough to read the last line.
constexpr int kExitDelayMs = 1500;

} // namespace

ForcedUpdateFlow::ForcedUpdateFlow(UpgradeController *controller, QWidget *window)
    : QObject(window)
    , m_controller(controller)
    , m_window(window)
{
    connect(m_controller, &UpgradeController::checkFinished, this,
            &ForcedUpdateFlow::onCheckFinished);
    // Also the end of an update that was under way already, which answers to whoever started it.
    connect(m_controller, &UpgradeController::installFinished, this,
            &ForcedUpdateFlow::onUpdateEnded);
}

// A failed check forces nothing, whatever an earlier one said: without the server or the network
// the update would fail as well, and the user could not work.
void ForcedUpdateFlow::onCheckFinished(bool ok)
{
    if (!ok || m_dialog || !m_controller->isForceUpdateRequired())
        return;
    qInfo("[ForcedUpdateFlow] mandatory update starts");
    buildDialog();
    // Modal for the whole program; open() would leave its other windows usable.
    m_dialog->show();
    // Not inside the check's own signal.
    QTimer::singleShot(0, this, &ForcedUpdateFlow::startUpdate);
}

void ForcedUpdateFlow::buildDialog()
{
    m_dialog = new ForcedUpdateDialog(m_window);
    m_dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(m_controller, &UpgradeController::updateStageChanged, m_dialog,
            &ForcedUpdateDialog::setStageText);
    connect(m_controller, &UpgradeController::downloadProgressChanged, m_dialog,
            &ForcedUpdateDialog::setDownloadProgress);
    connect(m_dialog, &ForcedUpdateDialog::retryRequested, this, &ForcedUpdateFlow::startUpdate);
    connect(m_dialog, &ForcedUpdateDialog::exitRequested, this, [] { QCoreApplication::quit(); });
}

void ForcedUpdateFlow::startUpdate()
{
    const QPointer<ForcedUpdateFlow> self(this);
    m_controller->startForcedUpdate([self](bool ok, const QString &message) {
        if (self)
            self->onUpdateEnded(ok, message);
    });
}

void ForcedUpdateFlow::onUpdateEnded(bool ok, const QString &message)
{
    if (!m_dialog || m_ending)
        return;
    if (!ok) {
        m_dialog->showFailureState(message);
        return;
    }
    m_ending = true;
    m_dialog->showPreparingExitState(QString());
    QTimer::singleShot(kExitDelayMs, this, [] { QCoreApplication::quit(); });
}
