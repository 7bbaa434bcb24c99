#pragma once

#include <QByteArray>

namespace core {

/// Opens a directory below another one, part by part, so that no link on the way leads elsewhere,
/// whoever exchanges directories meanwhile. `relative` is empty for `rootFd` itself; parts are
/// separated by single slashes. The result is for *at() calls only (O_PATH, close-on-exec) and the
/// caller's to close. -1 with errno otherwise: ELOOP if a part is a link, EINVAL for "..".
int openDirectoryBeneath(int rootFd, const QByteArray &relative);

} // namespace core
