#pragma once

#include <QString>
#include <QStringList>

namespace search {

/// The clean path of an index root or an excluded directory as the settings have it. A directory of
/// exactly that name comes first, then the one without blanks around it. Asks the disk. Empty for
/// blanks only.
QString cleanRoot(const QString &root);

/// Clean paths of existing directories, none of which lies in another one, so that no file is
/// walked twice.
QStringList outermostRoots(const QStringList &roots);

} // namespace search
