#pragma once

#include <QObject>
#include <QPointer>

class ForcedUpdateDialog;
class QWidget;

namespace core {
namespace controllers {
namespace upgrade {
class UpgradeController;
}
} // namespace controllers
} // namespace core

/// Carries out a mandatory update as soon as a check has found one: shows the screen that cannot be
/// dismissed, follows the stages, and ends the program when the update has been handed over. GUI
/// thread only.
class ForcedUpdateFlow : public QObject
{
    Q_OBJECT

public:
    ForcedUpdateFlow(core::controllers::upgrade::UpgradeController *controller, QWidget *window);

private:
    void onCheckFinished(bool ok);
    void buildDialog();
    void startUpdate();
    void onUpdateEnded(bool ok, const QString &message);

    core::controllers::upgrade::UpgradeController *m_controller;
    QWidget *m_window;
    QPointer<ForcedUpdateDialog> m_dialog;
    bool m_ending = false; ///< Handed over; the program is about to end.
};
