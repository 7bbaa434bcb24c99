#include "wechat/wechatcleanworker.h"

#include "analyzer/duplicate_scanner.h"
#include "wechat/cleanactions.h"
#include "wechat/cleanrun.h"
#include "wechat/duplicatewalk.h"
#include "wechat/interruptedwork.h"
#include "wechat/nativewechatdetector.h"
#include "wechat/operationrecord.h"
#include "wechat/preflight.h"
#include "wechat/spacereserve.h"
#include "wechat/undorun.h"

#include <QThread>

#include <algorithm>

namespace {

constexpr int kMaxThreads = 8;

QString typeLabel(const QString &type)
{
    if (type == QLatin1String("native") || type == QLatin1String("wechat"))
        return QStringLiteral("原生微信");
    if (type == QLatin1String("wxwork"))
        return QStringLiteral("企业微信");
    return QStringLiteral("手动目录");
}

QList<QVariant> loadProfiles(const QString &home)
{
    QList<WechatProfile> profiles = NativeWechatDetector(home).detect();
    std::stable_sort(profiles.begin(), profiles.end(),
                     [](const WechatProfile &a, const WechatProfile &b) {
                         if (a.confidence != b.confidence)
                             return a.confidence > b.confidence;
                         return a.profilePath < b.profilePath;
                     });
    QList<QVariant> maps;
    for (const WechatProfile &profile : qAsConst(profiles))
        maps.append(WechatCleanWorker::profileToVariantMap(profile));
    return maps;
}

DuplicateScanner::ScanOptions scanOptions(qint64 minSize)
{
    DuplicateScanner::ScanOptions options;
    options.minimumSize = minSize;
    options.byHash = true;
    options.threads = qBound(1, QThread::idealThreadCount(), kMaxThreads);
    return options;
}

QList<QVariant> groupsWithSummary(const DuplicateScanner::PartialResult &result)
{
    QVariantMap summary;
    summary.insert(QStringLiteral("totalGroups"), result.totalGroups);
    summary.insert(QStringLiteral("totalReclaimable"), result.totalReclaimable);
    summary.insert(QStringLiteral("shownGroups"), result.groups.size());
    QList<QVariant> groups = result.groups;
    groups.prepend(summary);
    return groups;
}

} // namespace

WechatCleanWorker::WechatCleanWorker(const QString &home, QObject *parent)
    : QObject(parent)
    , m_home(home)
{}

WechatCleanWorker::~WechatCleanWorker() = default;

QString WechatCleanWorker::operationsDirPath(const QString &home)
{
    return wechat::CleanFolders(home).operations;
}

QVariantMap WechatCleanWorker::profileToVariantMap(const WechatProfile &profile)
{
    QVariantMap map;
    map.insert(QStringLiteral("profilePath"), profile.profilePath);
    map.insert(QStringLiteral("wxId"), profile.wxId);
    map.insert(QStringLiteral("type"), profile.type);
    map.insert(QStringLiteral("typeLabel"), typeLabel(profile.type));
    map.insert(QStringLiteral("scanDirs"), profile.scanDirs);
    map.insert(QStringLiteral("matchedMarkers"), profile.matchedMarkers);
    map.insert(QStringLiteral("confidence"), profile.confidence);
    map.insert(QStringLiteral("estimatedBytes"), profile.estimatedBytes);
    return map;
}

void WechatCleanWorker::detectWechatDirs()
{
    emit progressChanged(10, QStringLiteral("正在检测微信目录..."));
    emit detectFinished(loadProfiles(m_home));
    emit progressChanged(100, QStringLiteral("目录检测完成"));
}

void WechatCleanWorker::startScan(const QStringList &dirs, qint64 minSize, qint64 estimatedBytes)
{
    const QStringList roots = wechat::cleanedPaths(dirs);
    if (roots.isEmpty()) {
        emit duplicateGroupsReady(QList<QVariant>());
        emit scanFinished(false, QStringLiteral("未选择可扫描的微信目录"), 0);
        return;
    }
    const auto shouldStop = [this] {
        return isStopped();
    };
    const auto walked = [this, estimatedBytes](const wechat::WalkProgress &progress) {
        emit progressChanged(
            wechat::walkPercent(progress, estimatedBytes),
            QStringLiteral("正在扫描微信文件：已扫描 %1 个文件").arg(progress.files));
    };
    const auto compared = [this](int done, int total) {
        const QString text = total > 0
                                 ? QStringLiteral("正在检测重复文件：%1/%2").arg(done).arg(total)
                                 : QStringLiteral("正在检测重复文件...");
        emit progressChanged(wechat::comparePercent(done, total), text);
    };
    const QHash<qint64, QStringList> buckets =
        wechat::filesBySize(roots, minSize, shouldStop, walked);
    DuplicateScanner::PartialResult result;
    if (!isStopped()) {
        emit progressChanged(60, QStringLiteral("正在分析重复文件..."));
        result = DuplicateScanner::scan(buckets, scanOptions(minSize), shouldStop, compared);
    }
    if (isStopped()) {
        emit scanFinished(false, QStringLiteral("用户取消"), 0);
        return;
    }
    emit duplicateGroupsReady(groupsWithSummary(result));
    emit progressChanged(100, QStringLiteral("扫描完成"));
    emit scanFinished(true,
                      QStringLiteral("扫描完成，共发现 %1 组重复文件").arg(result.totalGroups),
                      result.totalGroups);
}

void WechatCleanWorker::runPreflightCheck(const QVariantList &actions)
{
    QStringList issues;
    QStringList processes;
    if (wechat::isWechatRunning(&processes))
        issues.append(QStringLiteral("检测到微信仍在运行，请先退出微信后再清理。\n%1")
                          .arg(processes.join(QLatin1Char('\n'))));
    wechat::FileOperations operations;
    const wechat::PreflightResult result =
        wechat::checkActions(operations, wechat::parseActions(actions));
    issues.append(result.issues);
    if (!issues.isEmpty() && issues.size() == result.elsewhere.size()) {
        const QVariantList mergeable = wechat::actionsWithout(actions, result.elsewhere);
        if (!mergeable.isEmpty())
            emit mergeableActionsReady(mergeable, result.elsewhere);
    }
    emit preflightFinished(issues.isEmpty(), result.warnings, issues);
}

void WechatCleanWorker::executeClean(const QVariantList &actions)
{
    wechat::FileOperations operations;
    wechat::CleanRun run(
        operations, wechat::CleanFolders(m_home), [this] { return isStopped(); },
        [this](int done, int total) { emit cleanProgressChanged(done, total); });
    const wechat::CleanOutcome outcome = run.run(wechat::parseActions(actions));
    emit cleanFinished(!outcome.sessionId.isEmpty(), outcome.mergedCount, outcome.reclaimedBytes,
                       outcome.sessionId, outcome.errors);
}

void WechatCleanWorker::undoCleanSession(const QString &sessionId)
{
    wechat::FileOperations operations;
    const wechat::UndoOutcome outcome =
        wechat::UndoRun(operations, wechat::CleanFolders(m_home)).run(sessionId);
    emit undoFinished(outcome.restoredCount > 0, sessionId, outcome.restoredCount, outcome.errors);
}

void WechatCleanWorker::recoverInterrupted()
{
    wechat::FileOperations operations;
    const wechat::CleanFolders folders(m_home);
    const wechat::RecoveryOutcome outcome =
        wechat::InterruptedWork(operations, folders, [this] { return isStopped(); }).run();
    wechat::SpaceReserve(operations, folders).fill();
    emit recoveryFinished(outcome.restored, outcome.removed, outcome.errors, outcome.unavailable);
}

void WechatCleanWorker::requestStop()
{
    m_stop.store(1);
}
