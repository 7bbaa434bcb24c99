#include "search/resultcheck.h"

#include "core/mounttable.h"
#include "core/pathutil.h"

#include <QDirIterator>
#include <QFile>
#include <QVariantMap>

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace search {
namespace {

/// True where a look may wait for another machine, or for a program.
bool mayHang(const QVector<core::Mount> &mounts, const QByteArray &path)
{
    static const QByteArrayList types = {"nfs", "nfs4", "cifs",   "smb3",  "smbfs",     "afs",
                                         "9p",  "ceph", "autofs", "davfs", "glusterfs", "lustre"};
    const core::Mount *mount = core::mountOf(mounts, path);
    return mount && (types.contains(mount->type) || mount->type.startsWith("fuse."));
}

bool isGone(const QByteArray &path)
{
    struct stat status;
    return ::lstat(path.constData(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

bool holdsNothing(const QString &root)
{
    return !QDirIterator(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).hasNext();
}

} // namespace

ResultCheck::ResultCheck(const QStringList &roots, const QString &storedPrefix)
    : m_roots(roots)
    , m_storedPrefix(storedPrefix)
{}

QVariantList ResultCheck::checked(const QVariantList &rows) const
{
    const QVector<core::Mount> mounts = core::readMountTable();
    QStringList offlineRoots;
    for (const QString &root : m_roots) {
        if (!mayHang(mounts, QFile::encodeName(root)) && holdsNothing(root))
            offlineRoots.append(root);
    }
    QVariantList kept;
    for (const QVariant &row : rows) {
        const QString stored = row.toMap().value(QStringLiteral("path")).toString();
        const QString path = core::isInside(stored, m_storedPrefix) || m_storedPrefix.isEmpty()
                                 ? stored
                                 : m_storedPrefix + stored;
        const bool isOffline =
            std::any_of(offlineRoots.cbegin(), offlineRoots.cend(),
                        [&path](const QString &root) { return core::isInside(path, root); });
        const QByteArray name = QFile::encodeName(path);
        if (isOffline) {
            QVariantMap marked = row.toMap();
            marked.insert(QStringLiteral("offline"), true);
            kept.append(marked);
        } else if (mayHang(mounts, name) || !isGone(name)) {
            kept.append(row);
        }
    }
    return kept;
}

QVariantList ResultCheck::filled(int limit,
                                 const std::function<QVariantList(int limit)> &search) const
{
    constexpr int mostRounds = 4;
    if (!isActive())
        return search(limit);
    int wanted = limit;
    for (int round = 1;; ++round) {
        const QVariantList found = search(wanted);
        const QVariantList kept = checked(found);
        if (kept.size() >= limit || found.size() < wanted || round == mostRounds)
            return kept.mid(0, limit);
        wanted += 2 * (found.size() - kept.size());
    }
}

} // namespace search
