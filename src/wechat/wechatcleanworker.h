#pragma once

#include "wechat/wechatprofile.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <atomic>

/// Finds duplicates in WeChat folders and merges them into hard links, with undo. Lives on a thread
/// of its own and is reached by queued calls, apart from requestStop(), and reports by signals
/// only. A stop is final: the next task needs a new worker. Sizes are bytes.
///
/// Every merge verifies the content again and keeps the old copy under a backup name until the link
/// to the same content stands, so that a failure or a crash at any point loses nothing.
class WechatCleanWorker : public QObject
{
    Q_OBJECT

public:
    /// An empty home means the user's; the clients are looked for and the records kept below it.
    explicit WechatCleanWorker(const QString &home = QString(), QObject *parent = nullptr);
    ~WechatCleanWorker() override;

    /// Folder of the operation records of this home.
    static QString operationsDirPath(const QString &home = QString());
    /// The map in which a profile crosses the system, with "typeLabel" added.
    static QVariantMap profileToVariantMap(const WechatProfile &profile);

public slots:
    /// Ends in detectFinished().
    void detectWechatDirs();
    /// Ends in scanFinished(). `estimatedBytes` above 0 drives the percentage.
    void startScan(const QStringList &dirs, qint64 minSize, qint64 estimatedBytes);
    /// Looks whether the actions can be carried out; changes nothing. Ends in preflightFinished().
    void runPreflightCheck(const QVariantList &actions);
    /// Actions are maps of "keepPath", "size", "hash" (hexadecimal, may be empty), "replacePaths"
    /// and "replaceGroups" (maps of "path" and "aliasPaths"). Ends in cleanFinished().
    void executeClean(const QVariantList &actions);
    /// Turns the links of one clean into copies of their own again. Ends in undoFinished().
    void undoCleanSession(const QString &sessionId);
    /// Puts back what an interrupted clean left under a backup name, or removes it where the link
    /// stands, and sets room aside for cleans of a full disk. To be called at each start. Ends in
    /// recoveryFinished().
    void recoverInterrupted();
    /// Any thread.
    void requestStop();

signals:
    /// Maps of profileToVariantMap(), most confident first.
    void detectFinished(const QList<QVariant> &profiles);
    void progressChanged(int percent, const QString &text);
    /// The first entry is the summary ("totalGroups", "totalReclaimable", "shownGroups"), then the
    /// groups as DuplicateScanner gives them.
    void duplicateGroupsReady(const QList<QVariant> &groups);
    void scanFinished(bool ok, const QString &message, int groupCount);
    /// Comes before a preflightFinished() whose only issues are copies on other partitions: the
    /// actions without those copies, which can be carried out, and the copies. Not sent if no
    /// action is left.
    void mergeableActionsReady(const QVariantList &actions, const QStringList &elsewhere);
    /// Issues forbid the clean, warnings do not.
    void preflightFinished(bool ok, const QStringList &warnings, const QStringList &issues);
    void cleanProgressChanged(int done, int total);
    void cleanFinished(bool ok, int mergedCount, qint64 reclaimedBytes, const QString &sessionId,
                       const QStringList &errors);
    void undoFinished(bool ok, const QString &sessionId, int restoredCount,
                      const QStringList &errors);
    /// Paths that have their name back, backups removed because the link stood, what could not be
    /// repaired, and folders that cannot be read now, for which the journal is kept. All empty if
    /// nothing was left over.
    void recoveryFinished(const QStringList &restored, const QStringList &removed,
                          const QStringList &errors, const QStringList &unavailable);

private:
    bool isStopped() const { return m_stop.load() != 0; }

    QString m_home;
    std::atomic<int> m_stop{0};
};
