#pragma once

#include "core/appmode.h"
#include "ui/pages/vaultbrowserpage/browserrules.h"

#include <QPointer>
#include <QWidget>

#include <functional>

class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTimer;

namespace core {
namespace controllers {
class RecoveryController;
}
} // namespace core
namespace ui {
namespace common {
class EmptyState;
class ProtectedFileTree;
class WrapLabel;
} // namespace common
} // namespace ui
namespace vaultbrowser {
class VaultLoader;
}

/// What the vault service left on disks where it does not run: lists the vaults and their files and
/// has the recovery service restore them. In normal mode it reads the mounted partitions itself, in
/// livecd mode the recovery service tells it what is there. GUI thread only.
class VaultBrowserPage : public QWidget
{
    Q_OBJECT

public:
    using VaultLocation = vault::VaultLocation;
    /// Asks for a directory; empty when the user cancels.
    using DirectoryChooser = std::function<QString(QWidget *parent, const QString &title)>;

    /// Without a controller nothing can be restored, and in livecd mode nothing is listed.
    VaultBrowserPage(core::AppMode mode, core::controllers::RecoveryController *recovery,
                     QWidget *parent = nullptr);

    /// For tests: what stands in for the directory dialog, and for /proc/mounts.
    void setDirectoryChooser(const DirectoryChooser &chooser) { m_chooseDirectory = chooser; }
    void setMountsFile(const QString &path) { m_mountsFile = path; }

public slots:
    /// Looks for vaults anew, once more if that is under way already. The chosen one stays chosen
    /// if it is still there.
    void refresh();
    /// The recovery service is there (again).
    void onServiceConnected();
    /// It is gone: nothing more is heard of a restore that runs.
    void onServiceLost();
    void onVaultLocationsReceived(const QJsonArray &locations, bool ok, const QString &error);

protected:
    void showEvent(QShowEvent *event) override;

private:
    QFrame *buildHeader();
    QFrame *buildActions();
    QFrame *buildFileList();
    void wireController();

    void scanPartitions();
    void applyVaultLocations(const QVector<VaultLocation> &locations, bool ok,
                             const QString &error);
    void onPartitionChanged();
    void onFilesLoaded(const QString &vaultParentDir, const QJsonArray &files);
    void setFiles(const QJsonArray &files);
    void populateTree();
    void updateButtons();
    void showTreeState();
    void setListing(bool listing, const QString &status);

    void restoreSelected();
    void restoreAll();
    void restore(const QStringList &fileIds, const QString &doingText);
    void onVaultRestoreStarted(const QString &taskId);
    void onVaultRestoreError(const QString &message);
    void onVaultFileRestored(const QString &taskId, const QString &fileId,
                             const QString &originalPath, const QString &status,
                             const QString &error);
    void onVaultRestoreCompleted(const QString &taskId, int total, int succeeded, int failed,
                                 int skipped, qint64 totalBytes);
    void showRestore(const QString &text, bool isError = false);
    void later(const std::function<void()> &show);

    core::AppMode m_mode;
    QPointer<core::controllers::RecoveryController> m_recovery;
    DirectoryChooser m_chooseDirectory;
    QString m_mountsFile = QStringLiteral("/proc/mounts");
    vaultbrowser::VaultLoader *m_loader;
    vaultbrowser::RestoreWatch m_restore;
    QString m_lastRestoreError; ///< Of the first file that failed.

    QVector<VaultLocation> m_locations;
    QString m_chosenDir; ///< Parent of the chosen vault.
    QVector<protectedfiles::ProtectedFile> m_files;
    QString m_listError;
    bool m_isListing = false;
    bool m_isLoading = false;   ///< The files of the chosen vault are being read.
    bool m_needsRefresh = true; ///< As soon as the page shows.

    QComboBox *m_partitions = nullptr;
    QPushButton *m_refresh = nullptr;
    ui::common::WrapLabel *m_status = nullptr;
    QPushButton *m_restoreSelected = nullptr;
    QPushButton *m_restoreAll = nullptr;
    QLabel *m_checked = nullptr;
    int m_checkedCount = 0;
    ui::common::WrapLabel *m_restoreLabel = nullptr;
    QProgressBar *m_restoreBar = nullptr;
    QLabel *m_heading = nullptr;
    QLineEdit *m_search = nullptr;
    QTimer *m_searchTimer;
    ui::common::ProtectedFileTree *m_tree = nullptr;
};
