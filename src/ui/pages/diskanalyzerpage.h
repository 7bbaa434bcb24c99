#pragma once

#include "ui/pages/analyzersettingsdialog.h"
#include "ui/pages/diskanalyzerpage/filedeletion.h"
#include "ui/pages/diskanalyzerpage/partitionrules.h"

#include <QModelIndex>
#include <QVariantList>
#include <QVariantMap>
#include <QWidget>

#include <functional>

class QHBoxLayout;
class QTabWidget;
class VaultController;

namespace ui::common {
class LongWork;
}
namespace diskanalyzer {
class DeletionFlow;
class DirectoryLister;
class DirectoryTab;
class DuplicateTab;
class LargeFilesTab;
class PartitionStrip;
class ScanBar;
class ScanEngine;
class VaultWatch;
} // namespace diskanalyzer

/// What fills a partition: its largest files, its directories and its duplicates. Scans on a thread
/// of its own, and removes files that the user chose. GUI thread only. Object names: AnalyzerTabs,
/// AnalyzerRefreshButton and those of its parts.
class DiskAnalyzerPage : public QWidget
{
    Q_OBJECT

public:
    /// Shows a directory to the user.
    using DirectoryOpener = std::function<void(const QString &directory)>;

    /// Without a controller no file counts as covered by the vault.
    explicit DiskAnalyzerPage(VaultController *controller, QWidget *parent = nullptr);
    /// Stops a running scan and waits for its end.
    ~DiskAnalyzerPage() override;

    void setVaultController(VaultController *controller);
    /// What stands in for the mounted volumes of this machine; they are read anew.
    void setPartitionProvider(const diskanalyzer::PartitionProvider &provider);
    /// For tests: what stands in for the file manager.
    void setDirectoryOpener(const DirectoryOpener &opener) { m_openDirectory = opener; }
    /// What the next scan looks for.
    void setScanSettings(const AnalyzerSettingsDialog::Settings &settings);
    /// Scans one directory instead of a partition. Does nothing while a scan runs.
    void scanPath(const QString &path);
    bool isScanning() const { return m_scan != Scan::None; }

public slots:
    void openSettings();
    void startScan();
    void stopScan();
    void onProgressChanged(int percent, const QString &statusText);
    void onScanFinished(bool success, const QString &message, int largeFileCount,
                        int dupGroupCount);
    void onLargeFilesReady(const QVariantList &files);
    void onDuplicateGroupsReady(const QVariantList &groups);
    void onDirectoryTreeReady(const QVariantMap &rootNode);
    void onPartitionCardClicked(int index);
    void onDirTreeItemClicked(const QModelIndex &index);
    void populateDirFileTable(const QVariantList &files);

protected:
    void showEvent(QShowEvent *event) override;

private:
    enum class Scan { None, Running, Stopping };

    void arrange();
    QHBoxLayout *buildHeader();
    void buildTabs();
    void wireScan();
    void wireResults();
    void readPartitions();
    void buildPartitionCards(const QVector<diskanalyzer::PartitionInfo> &volumes);
    void selectPartition(int index);
    void setScan(Scan scan);
    void clearTabs();
    void endTabs(bool success, bool stopped, const QString &message);
    void dropRemoved(const QVector<diskanalyzer::ScannedFile> &files);
    void openContainingDir(const QString &filePath);

    diskanalyzer::PartitionProvider m_partitionProvider;
    DirectoryOpener m_openDirectory;
    QVector<diskanalyzer::PartitionInfo> m_partitions;
    QString m_selectedPath; ///< Mount path of the chosen partition; empty for none.
    QString m_scanRoot;
    AnalyzerSettingsDialog::Settings m_settings;
    Scan m_scan = Scan::None;
    int m_scanNumber = 0;    ///< Tells results of this scan from late ones of the last.
    int m_partitionRead = 0; ///< The same for readings of the partitions.
    bool m_hasLargeFiles = false;
    bool m_hasTree = false;
    bool m_hasDuplicates = false;

    diskanalyzer::PartitionStrip *m_strip;
    diskanalyzer::ScanBar *m_bar;
    QTabWidget *m_tabs;
    diskanalyzer::LargeFilesTab *m_largeFiles;
    diskanalyzer::DirectoryTab *m_directories;
    diskanalyzer::DuplicateTab *m_duplicates;
    diskanalyzer::DirectoryLister *m_lister;
    diskanalyzer::VaultWatch *m_vault;
    diskanalyzer::DeletionFlow *m_deletion;
    diskanalyzer::ScanEngine *m_engine;
    ui::common::LongWork *m_work;
};
