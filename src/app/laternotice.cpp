#include "app/laternotice.h"

#include "ui/common/appnoticedialog.h"

#include <QTimer>

using ui::common::AppNoticeDialog;

namespace LaterNotice {

void warn(const QPointer<QWidget> &window, const QString &title, const QString &message,
          const QString &detail)
{
    if (window)
        QTimer::singleShot(0, window, [window, title, message, detail] {
            AppNoticeDialog::showWarning(window, title, message, detail);
        });
}

void inform(const QPointer<QWidget> &window, const QString &title, const QString &message)
{
    if (window)
        QTimer::singleShot(0, window, [window, title, message] {
            AppNoticeDialog::showInfo(window, title, message);
        });
}

} // namespace LaterNotice
