#pragma once

#include "core/appmode.h"
#include "ui/pages/realtimeprotectionpage/statusrules.h"

#include <QJsonObject>
#include <QPointer>
#include <QStringList>
#include <QWidget>

#include <functional>

class LockOverlay;
class NoticeQueue;
class QJsonArray;
class QTimer;
class ShieldSettingsDialog;
class VaultController;

namespace realtimeprotection {
class FileListCard;
class StatusCard;
} // namespace realtimeprotection

/// The user's face of the vault service: whether protection works, its switch and settings, and the
/// deleted files that it holds. In normal mode the list of these is locked until the user has given
/// their password, and again five minutes later.
class RealtimeProtectionPage : public QWidget
{
    Q_OBJECT

public:
    using DirectoryChooser = std::function<QString(QWidget *parent, const QString &title)>;

    RealtimeProtectionPage(VaultController *controller, core::AppMode mode,
                           QWidget *parent = nullptr);
    ~RealtimeProtectionPage() override;

    /// Not owned, may be null. The old one is heard no more.
    void setController(VaultController *controller);
    bool isFileListUnlocked() const { return m_isUnlocked; }

    /// What stands in for the directory dialogs, also in the settings.
    void setDirectoryChooser(const DirectoryChooser &chooser) { m_chooseDirectory = chooser; }
    /// How long the list stays open after the password, in milliseconds. Normal mode only.
    void setAutoLockInterval(int ms);
    /// How long the service has to check a password, in milliseconds.
    void setVerificationTimeout(int ms) { m_verificationTimeoutMs = ms; }

public slots:
    /// Asks the service for status, configuration and the first files.
    void refreshAll();
    void toggleProtection();
    void openSettings();
    /// Runs the password dialog modally.
    void requestUnlock();
    void setFileListLocked(bool locked);
    void onSearchFiles();
    void onRestoreSelected();
    void onDeleteSelected();
    void onClearAll();

private:
    void buildPage();
    void buildOverlay();
    void wireParts();
    void connectController();
    void connectCompletions();

    void onConnectionChanged(bool connected);
    void onStatusUpdated(const QJsonObject &status);
    void onConfigUpdated(const QJsonObject &config);
    void onFileListUpdated(const QJsonArray &files, int totalCount);
    void onFileProtected();
    void onEnableCompleted(bool success, bool needReboot);
    void onDisableCompleted(bool success);
    void onToggleCompleted();
    void onFilesChanged(bool success, const QString &failureTitle, const QString &failureText);

    void applySettingsFromDialog(const ShieldSettingsDialog &dialog);
    bool isConnected() const;
    /// The first files that match; onFileListUpdated() asks for the others.
    void requestFirstFiles(const QString &filter);
    bool canWorkOnFiles() const;
    /// After a dialog: the list may have locked itself meanwhile. Says so if it has.
    bool canStillWorkOnFiles();

    core::AppMode m_mode;
    QPointer<VaultController> m_controller;
    DirectoryChooser m_chooseDirectory;
    bool m_isUnlocked;
    QJsonObject m_config; ///< The last one that came.
    QStringList m_protectedDirs;
    bool m_isProtectionEnabled = false;
    QString m_secondNetReason;
    realtimeprotection::BreakageWatch m_breakage;
    int m_verificationTimeoutMs;
    int m_wholeListSize = 0; ///< Files of the last answer that led to asking for all; 0: none yet.
    QString m_wholeListFilter;

    NoticeQueue *m_notices;
    QTimer *m_autoLockTimer = nullptr; ///< Normal mode only, as the overlay.
    QTimer *m_protectedTimer;
    bool m_isProtectedAgain = false; ///< Files came under protection while the timer ran.
    realtimeprotection::StatusCard *m_status = nullptr;
    realtimeprotection::FileListCard *m_files = nullptr;
    LockOverlay *m_overlay = nullptr;
};
