#include "app/workprogress.h"

#include "core/controllers/recoverycontroller.h"
#include "core/controllers/scancontroller.h"
#include "ui/common/longwork.h"

#include <QCoreApplication>

using core::controllers::RecoveryController;
using core::controllers::ScanController;
using ui::common::LongWork;

namespace {

constexpr double percent = 100.0;

QString text(const char *source)
{
    return QCoreApplication::translate("WorkProgress", source);
}

} // namespace

void followScans(ScanController *scans, QObject *parent)
{
    auto *work = new LongWork(text("文件恢复"), parent);
    QObject::connect(scans, &ScanController::scanStarted, work, &LongWork::start);
    QObject::connect(
        scans, &ScanController::scanProgress, work,
        [work](const QString &, double progress) { work->setFraction(progress / percent); });
    QObject::connect(scans, &ScanController::scanCompleted, work,
                     [work] { work->finish(text("扫描完成，可以查看结果。")); });
    QObject::connect(scans, &ScanController::scanStopped, work, [work] { work->finish(); });
    QObject::connect(scans, &ScanController::scanError, work,
                     [work](const QString &, const QString &message) {
                         work->finish(text("扫描失败：%1").arg(message));
                     });
}

void followRecoveries(RecoveryController *recoveries, QObject *parent)
{
    auto *work = new LongWork(text("文件恢复"), parent);
    QObject::connect(recoveries, &RecoveryController::recoveryStarted, work, &LongWork::start);
    QObject::connect(
        recoveries, &RecoveryController::recoveryProgress, work,
        [work](const QString &, double progress) { work->setFraction(progress / percent); });
    QObject::connect(recoveries, &RecoveryController::recoveryCompleted, work,
                     [work] { work->finish(text("恢复完成，可以查看结果。")); });
    QObject::connect(recoveries, &RecoveryController::recoveryStopped, work,
                     [work] { work->finish(); });
    QObject::connect(recoveries, &RecoveryController::recoveryError, work,
                     [work](const QString &, const QString &message) {
                         work->finish(text("恢复失败：%1").arg(message));
                     });
}
