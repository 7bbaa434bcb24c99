#pragma once

#include <QString>
#include <QStringList>

/// One account of a WeChat or WXWork client, as found on disk.
struct WechatProfile
{
    QString profilePath; ///< Absolute path of the account's directory, no trailing slash.
    QString wxId;        ///< May be empty.
    QString type;        ///< "wechat", "wxwork", or another word for a directory chosen by hand.
    QStringList scanDirs;
    QStringList matchedMarkers; ///< In no defined order.
    int confidence = 0;         ///< 0 to 100.
    qint64 estimatedBytes = -1; ///< -1: unknown.
};
