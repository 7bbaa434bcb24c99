#pragma once

#include "wechat/wechatprofile.h"

#include <QList>
#include <QString>
#include <QStringList>

/// Finds the file-receive folders of WeChat and WXWork below a home directory. Reads the file
/// system and nothing else; what cannot be read contributes nothing. Any thread.
class NativeWechatDetector
{
public:
    /// An empty home means the user's.
    explicit NativeWechatDetector(const QString &home = QString());

    /// All accounts in the known places, in the order of the rules.
    QList<WechatProfile> detect() const;
    /// Tries a folder chosen by hand under each rule.
    QList<WechatProfile> detectInRoot(const QString &root) const;

private:
    QString m_home;
};

class WechatDetectorUtils
{
public:
    /// Names of markers found in these directories, in no defined order.
    static QStringList matchedMarkers(const QStringList &dirs);
    /// True for a directory that is content of an account and never one itself.
    static bool isMarkerDir(const QString &name);
};
