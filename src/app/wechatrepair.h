#pragma once

#include <QString>
#include <QWidget>

/// Repairs, in the background, what a clean or an undo of the WeChat cleaner left behind that was
/// interrupted, and makes the room that the cleaner keeps for a full disk. A notice on the window
/// tells what was repaired or needs a hand; a disk that is away is left to the cleaner's page. The
/// work belongs to the window and is stopped with it. An empty home means the user's.
void startWechatRepair(QWidget *window, const QString &home = QString());
