#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>

/// Notices out of a service link's callbacks. They come up from the event loop, since a dialog
/// inside the callback would hold back all further frames, and not at all if their window has gone
/// by then.
namespace LaterNotice {

void warn(const QPointer<QWidget> &window, const QString &title, const QString &message,
          const QString &detail = QString());
void inform(const QPointer<QWidget> &window, const QString &title, const QString &message);

} // namespace LaterNotice
