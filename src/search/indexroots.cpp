#include "search/indexroots.h"

#include "core/pathutil.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace search {

QString cleanRoot(const QString &root)
{
    const QString exact = core::cleanedPath(root);
    const QString trimmed = QDir::cleanPath(root.trimmed());
    return exact == trimmed || QFileInfo(exact).isDir() ? exact : trimmed;
}

QStringList outermostRoots(const QStringList &roots)
{
    QStringList existing;
    for (const QString &root : roots) {
        const QString clean = cleanRoot(root);
        if (!clean.isEmpty() && QFileInfo(clean).isDir() && !existing.contains(clean))
            existing.append(clean);
    }
    QStringList outermost;
    for (const QString &root : qAsConst(existing)) {
        const auto holdsRoot = [&](const QString &other) {
            return other != root && core::isInside(root, other);
        };
        if (std::none_of(existing.cbegin(), existing.cend(), holdsRoot))
            outermost.append(root);
    }
    return outermost;
}

} // namespace search
