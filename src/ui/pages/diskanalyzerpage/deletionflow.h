#pragma once

#include "ui/pages/diskanalyzerpage/deletionquestion.h"
#include "ui/pages/diskanalyzerpage/duplicategroups.h"
#include "ui/pages/diskanalyzerpage/filedeletion.h"
#include "ui/pages/diskanalyzerpage/largefilemodel.h"

#include <QObject>
#include <QString>
#include <QVector>

#include <atomic>
#include <functional>
#include <memory>

class QWidget;

namespace diskanalyzer {

class VaultWatch;

/// Asks before files are removed, moves them to the trash or deletes them on a pool thread and
/// reports the result. One removal at a time. What is left of it at the end of the flow's life is
/// not removed.
class DeletionFlow : public QObject
{
    Q_OBJECT

public:
    /// Notices stand over `window`, which owns the flow and the watch.
    DeletionFlow(VaultWatch *vault, QWidget *window);
    ~DeletionFlow() override;

    /// The directory whose scan found the files; no link below it is followed.
    void setScanRoot(const QString &root) { m_root = root; }
    bool isRunning() const { return m_running; }

    // All of these block in dialogs.
    void deleteLargeFiles(const QVector<LargeFile> &files);
    void cleanGroup(const DuplicateGroup &group);
    void cleanAll(const DuplicateResult &result);

signals:
    void runningChanged(bool running);
    /// Before the user is told.
    void removed(const QVector<diskanalyzer::ScannedFile> &files);

private:
    using Groups = QVector<DeletionGroup>;
    /// Asks, given the number of files that a deletion would leave in the vault.
    using Question = std::function<DeletionChoice(int vaultCount)>;

    /// Without the choice of the trash.
    DeletionChoice confirm(const QString &text);
    void start(Groups groups, const Question &ask);
    void run(const Groups &groups, bool toTrash);
    void finish(const DeletionReport &report, bool asDuplicates);

    VaultWatch *m_vault;
    QWidget *m_window;
    QString m_root;
    bool m_running = false;
    std::shared_ptr<std::atomic<bool>> m_stop;
};

} // namespace diskanalyzer
