#pragma once

#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

namespace wechatclean {

/// The profile of a folder chosen by hand in which no account was found: the folder itself.
QVariantMap manualProfile(const QString &folder);
QString profilePath(const QVariant &profile);

/// Appends the profiles whose paths are not in the list yet; returns how many those were.
int addProfiles(const QVariantList &added, QVariantList *profiles);
/// The profiles without those of these paths.
QVariantList profilesExcept(const QVariantList &profiles, const QSet<QString> &paths);

/// The directories to scan, each once, without those inside another one: a file met twice would
/// count as its own hard link.
QStringList scanDirsOf(const QVariantList &profiles);
/// Bytes below all of them; -1 as soon as one of them is unknown.
qint64 estimatedBytesOf(const QVariantList &profiles);

} // namespace wechatclean
