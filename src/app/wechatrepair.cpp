#include "app/wechatrepair.h"

#include "app/laternotice.h"
#include "ui/pages/wechatcleanpage/cleantasks.h"
#include "ui/pages/wechatcleanpage/cleantexts.h"

#include <QDebug>

void startWechatRepair(QWidget *window, const QString &home)
{
    auto *tasks = new wechatclean::CleanTasks(home, window);
    QObject::connect(tasks, &wechatclean::CleanTasks::recoveryFinished, window,
                     [window, tasks](const QStringList &restored, const QStringList &removed,
                                     const QStringList &errors, const QStringList &unavailable) {
                         tasks->deleteLater();
                         for (const QString &folder : unavailable)
                             qInfo().noquote()
                                 << "[WechatRepair] journal kept, cannot read" << folder;
                         const QString text =
                             wechatclean::recoveryText(restored, removed, errors, {});
                         const QString title = QStringLiteral("已检查上次中断的微信清理");
                         if (!errors.isEmpty())
                             LaterNotice::warn(window, title, text);
                         else if (!text.isEmpty())
                             LaterNotice::inform(window, title, text);
                     });
    tasks->recoverInterrupted();
}
