#pragma once

#include "core/appmode.h"

#include <QPointer>
#include <QString>
#include <QWidget>

class QComboBox;
class QFrame;
class QLabel;
class QPushButton;

namespace core {
namespace controllers {
namespace upgrade {
class UpgradeController;
}
} // namespace controllers
} // namespace core

/// The interface settings and the software update card. GUI thread only.
class GlobalSettingsPage : public QWidget
{
    Q_OBJECT

public:
    /// Without a controller the update card says so. An empty `settingsPath` means the user's
    /// settings file.
    GlobalSettingsPage(core::controllers::upgrade::UpgradeController *controller,
                       core::AppMode mode, QWidget *parent = nullptr,
                       const QString &settingsPath = QString());

    void loadSettings();
    void saveSettings();
    void refreshUpgradeState();
    void checkForUpdates();
    void performUpgradePrimaryAction();

signals:
    void sidebarPinnedChanged(bool pinned);

private:
    QFrame *buildInterfaceCard();
    QFrame *buildUpgradeCard();
    void wireController();
    void startUpdate();
    void openDownloadPage();

    QPointer<core::controllers::upgrade::UpgradeController> m_controller;
    QString m_settingsPath;
    QComboBox *m_fontScale = nullptr;
    QComboBox *m_sidebarMode = nullptr;
    QLabel *m_currentVersion = nullptr;
    QLabel *m_latestVersion = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_check = nullptr;
    QPushButton *m_primary = nullptr;
};
