#pragma once

#include "ui/pages/wechatcleanpage/cleanresults.h"
#include "ui/pages/wechatcleansettingsdialog.h"

#include <QSet>
#include <QStringList>
#include <QVariantList>
#include <QWidget>

class QBoxLayout;
class QStackedWidget;

namespace ui::common {
class LongWork;
}
namespace wechatclean {
class BusyPanel;
class CleanTasks;
class DirectoryPanel;
class PageHeader;
class RecordKeeper;
class ResultPanel;
} // namespace wechatclean

/// The WeChat cleaner: picks directories, scans them, lets the user decide per group which file
/// stays, merges, and undoes earlier cleans. The work is done by CleanTasks beside the page; the
/// first show starts with what an interrupted clean left, then looks for directories. GUI thread
/// only. Deleting the page in the middle of a task stops it and waits.
///
/// Object names, besides those of the parts: WechatCleanPage, WechatStateStack.
class WechatCleanPage : public QWidget
{
    Q_OBJECT

public:
    enum class UiState { NoDirectory = 0, Directories = 1, Busy = 2, Results = 3 };

    /// An empty home means the user's: directories are looked for and records kept below it.
    explicit WechatCleanPage(QWidget *parent = nullptr, const QString &home = QString());
    ~WechatCleanPage() override;

    UiState state() const { return m_state; }

    QVariantList selectedProfileMaps() const;
    QStringList selectedScanDirs() const;
    /// Bytes; -1 if unknown.
    qint64 selectedEstimatedBytes() const;
    /// Action of the group of this card; empty if there is nothing to merge.
    QVariantMap buildCleanActionForCard(QWidget *card) const;
    /// Actions of all groups, whether their cards exist or not.
    QVariantList buildAllCleanActions() const;

public slots:
    void refreshDetectedProfiles();
    /// Asks for a folder.
    void addManualDirectory();
    /// The same for a folder already chosen.
    void addDirectory(const QString &folder);
    void removeProfileByPath(const QString &path);
    void startScan();
    void startScanForDirs(const QStringList &dirs, qint64 estimatedBytes);
    void stopCurrentTask();
    void openHistoryDialog();
    /// Asks first.
    void triggerUndoForRecord(const QString &sessionId);
    void openSettings();

    void onRecoveryFinished(const QStringList &restored, const QStringList &removed,
                            const QStringList &errors, const QStringList &unavailable);
    void onDetectFinished(const QList<QVariant> &profiles);
    void onProgressChanged(int percent, const QString &text);
    void onDuplicateGroupsReady(const QList<QVariant> &groups);
    void onScanFinished(bool ok, const QString &message, int groupCount);
    void onMergeableActionsReady(const QVariantList &actions, const QStringList &elsewhere);
    void onPreflightFinished(bool ok, const QStringList &warnings, const QStringList &issues);
    void onCleanProgressChanged(int done, int total);
    void onCleanFinished(bool ok, int mergedCount, qint64 reclaimedBytes, const QString &sessionId,
                         const QStringList &errors);
    void onUndoFinished(bool ok, const QString &sessionId, int restoredCount,
                        const QStringList &errors);

protected:
    void showEvent(QShowEvent *event) override;

private:
    /// What a clean said at its end, until its record has been read.
    struct CleanOutcome
    {
        QString sessionId;
        QString message;
        wechatclean::ResultOutcome shown;
        bool hasErrors = false;
    };

    void buildHeader(QBoxLayout *column);
    void buildStates(QBoxLayout *column);
    void wireTasks();
    void detectProfiles();
    void switchState(UiState state);
    void switchToBusy(const QString &title, const QString &text, bool mayStop,
                      const QString &note = QString());
    void showDirectories();
    void onRootDetected(const QVariantList &profiles);
    void rebuildProfileCards();
    void rebuildResultCards();
    void refreshResults();
    void cleanCard(QWidget *card);
    void cleanAll();
    void preflight(const QVariantList &actions);
    void confirmAndExecutePendingActions(const QStringList &warnings);
    void applyCleanSessionToCurrentGroups(const QString &sessionId);
    void onRecordRead(const QString &sessionId, const QVariantMap &record);
    void showProgress(int percent, const QString &text);
    void refreshRecordList();
    void openFolder(const QString &path);
    QWidget *noticeParent() const;

    wechatclean::CleanTasks *m_tasks;
    wechatclean::RecordKeeper *m_recordKeeper;
    WechatCleanSettingsDialog::Settings m_settings;
    QVariantList m_profiles; ///< Detected ones first.
    QVariantList m_manualProfiles;
    QSet<QString> m_deselected; ///< Paths of profiles without a check mark.
    wechatclean::CleanResults m_results;
    bool m_hasResults = false;
    QStringList m_scanningDirs;
    wechatclean::CleanResults m_scanned; ///< Of a scan that has not ended yet.
    QVariantList m_pendingActions;
    QVariantList m_mergeableActions; ///< Of the pending ones, if those cannot all be carried out.
    QStringList m_elsewhere;         ///< Copies that these leave out.
    CleanOutcome m_cleanOutcome;
    UiState m_state = UiState::NoDirectory;
    UiState m_stateBeforeBusy = UiState::NoDirectory;
    bool m_isStopping = false;
    bool m_wasShown = false;

    wechatclean::PageHeader *m_header = nullptr;
    QStackedWidget *m_stack = nullptr;
    wechatclean::DirectoryPanel *m_directories = nullptr;
    wechatclean::BusyPanel *m_busy = nullptr;
    wechatclean::ResultPanel *m_resultPanel = nullptr;
    ui::common::LongWork *m_work;
};
