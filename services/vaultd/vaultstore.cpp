#include "vaultd/vaultstore.h"

#include "common/outputfile.h"
#include "vaultd/expiry.h"
#include "vaultd/failure.h"

#include <QDebug>
#include <QFile>

#include <cerrno>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

// So many files are removed before the folders are flushed, and before a stop is heard.
constexpr int kBatch = 500;

/// 0, also if there was nothing; or the error.
int removePath(const QString &path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0 || errno == ENOENT ? 0 : errno;
}

} // namespace

VaultStore::VaultStore(const VaultLayout &layout, const QString &stateDir,
                       const std::atomic<bool> &stop)
    : m_layout(layout)
    , m_restorer(layout, stateDir + QStringLiteral("/restoring.json"), stop)
    , m_stop(stop)
{}

bool VaultStore::open(QString *error)
{
    if (!m_layout.prepare(error))
        return false;
    {
        const VaultLock lock(m_layout);
        if (!lock.isHeld(error))
            return false;
        m_restorer.finishInterrupted();
    }
    VaultChanges changes;
    return refresh(&changes, error);
}

QVector<VaultFile> VaultStore::files() const
{
    QVector<VaultFile> files;
    files.reserve(m_files.size());
    for (const VaultFile &file : m_files)
        files.append(file);
    return files;
}

bool VaultStore::refresh(VaultChanges *changes, QString *error)
{
    if (!m_layout.prepare(error))
        return false;
    const VaultLock lock(m_layout);
    Ids records;
    Ids contents;
    if (!lock.isHeld(error) || !list(&records, &contents, error))
        return false;
    const QStringList known = m_files.keys();
    for (const QString &id : known) {
        if (records.contains(id) && contents.contains(id))
            continue;
        m_files.remove(id);
        changes->removed.append(id);
    }
    m_skipped.intersect(Ids(records).unite(contents));
    for (const QString &id : qAsConst(records))
        if (!m_files.contains(id) && !m_skipped.contains(id))
            readNew(id, contents, changes);
    for (const QString &id : qAsConst(contents))
        if (!records.contains(id) && !m_skipped.contains(id))
            adopt(id, changes);
    return true;
}

bool VaultStore::list(Ids *records, Ids *contents, QString *error)
{
    const auto take = [](const QStringList &names, const QString &suffix, Ids *ids) {
        for (const QString &name : names) {
            const QString id = idOf(name, suffix);
            if (!id.isEmpty())
                ids->insert(id);
        }
    };
    QStringList names;
    if (!listNames(m_layout.meta(), &names, error))
        return false;
    removeUnfinished(m_layout.meta(), names, VaultLayout::unfinishedRecordName(QString()));
    take(names, VaultLayout::recordName(QString()), records);
    if (!listNames(m_layout.root(), &names, error))
        return false;
    removeUnfinished(m_layout.root(), names, VaultLayout::unfinishedContentName(QString()));
    take(names, VaultLayout::contentName(QString()), contents);
    return true;
}

void VaultStore::removeUnfinished(const QString &dir, const QStringList &names,
                                  const QString &suffix)
{
    for (const QString &name : names)
        if (!idOf(name, suffix).isEmpty() && removePath(dir + QLatin1Char('/') + name) != 0)
            qWarning() << "[VaultStore] cannot remove the unfinished" << name;
}

/// A record that has come since the last look.
void VaultStore::readNew(const QString &id, const Ids &contents, VaultChanges *changes)
{
    VaultFile file;
    QString error;
    if (!readRecord(m_layout, id, &file, &error)) {
        skip(id, error);
        return;
    }
    struct stat original;
    const bool hasOriginal = !file.originalPath.isEmpty() && look(file.originalPath, &original);
    if (!contents.contains(id)) {
        if (!hasOriginal)
            qWarning() << "[VaultStore] record dropped, its content is gone:" << file.originalPath;
        drop(id);
        return;
    }
    struct stat content;
    if (!look(m_layout.content(id), &content) || !S_ISREG(content.st_mode)) {
        skip(id, QStringLiteral("内容不是普通文件"));
        return;
    }
    if (hasOriginal && !file.originalState.isEmpty() && stateText(original) == file.originalState) {
        qInfo() << "[VaultStore] copy dropped, its original is in place:" << file.originalPath;
        drop(id);
        return;
    }
    add(file, content, changes);
}

/// A content that nothing is known of.
void VaultStore::adopt(const QString &id, VaultChanges *changes)
{
    struct stat content;
    QString error;
    if (!look(m_layout.content(id), &content) || !S_ISREG(content.st_mode)) {
        skip(id, QStringLiteral("内容不是普通文件"));
        return;
    }
    VaultFile file;
    file.id = id;
    file.fileName = QStringLiteral("恢复的文件-%1").arg(id);
    file.fileSize = qint64(content.st_size);
    file.deletedAt = qint64(content.st_ctim.tv_sec);
    if (!writeRecord(m_layout, file, &error)) {
        qWarning() << "[VaultStore] no record for" << id << error;
        return;
    }
    qWarning() << "[VaultStore] content without a record is listed as" << file.fileName;
    add(file, content, changes);
}

void VaultStore::drop(const QString &id)
{
    if (removePath(m_layout.content(id)) == 0) {
        syncDirectory(m_layout.root());
        removePath(m_layout.record(id));
    }
}

void VaultStore::add(VaultFile file, const struct stat &content, VaultChanges *changes)
{
    file.fileSize = qint64(content.st_size);
    file.keptSince = file.deletedAt >= 1 ? file.deletedAt : qint64(content.st_ctim.tv_sec);
    m_files.insert(file.id, file);
    changes->added.append(file);
}

void VaultStore::skip(const QString &id, const QString &why)
{
    qWarning() << "[VaultStore] not listed:" << id << why;
    m_skipped.insert(id);
}

bool VaultStore::restore(const QString &id, const QString &targetDir, QString *placed,
                         VaultChanges *changes, QString *error)
{
    const auto file = m_files.constFind(id);
    if (file == m_files.constEnd())
        return fail(error, QStringLiteral("保护区中没有这个文件"));
    if (!m_restorer.restore(*file, targetDir, placed, error))
        return false;
    m_files.erase(file);
    changes->removed.append(id);
    return true;
}

void VaultStore::remove(const QStringList &ids, VaultChanges *changes,
                        QHash<QString, QString> *failures)
{
    for (int from = 0; from < ids.size(); from += kBatch) {
        QString error = QStringLiteral("服务正在退出");
        const QStringList batch = ids.mid(from, kBatch);
        const VaultLock lock(m_layout);
        if (m_stop || !lock.isHeld(&error)) {
            for (const QString &id : batch)
                failures->insert(id, error);
            continue;
        }
        // The contents first: a record alone is dropped at the next start, a content comes back.
        QStringList gone;
        for (const QString &id : batch) {
            int code = 0;
            if (!m_files.contains(id))
                failures->insert(id, QStringLiteral("保护区中没有这个文件"));
            else if ((code = removePath(m_layout.content(id))) != 0)
                failures->insert(id, (fail(&error, QStringLiteral("无法删除"), code), error));
            else
                gone.append(id);
        }
        syncDirectory(m_layout.root());
        for (const QString &id : qAsConst(gone)) {
            removePath(m_layout.record(id));
            m_files.remove(id);
        }
        syncDirectory(m_layout.meta());
        changes->removed += gone;
    }
}

void VaultStore::expire(const VaultConfig &limits, qint64 now, qint64 freeBytes,
                        VaultChanges *changes)
{
    const QStringList ids = expiredIds(files(), limits, now, freeBytes);
    if (ids.isEmpty())
        return;
    VaultChanges removed;
    QHash<QString, QString> failures;
    remove(ids, &removed, &failures);
    for (auto it = failures.cbegin(); it != failures.cend(); ++it)
        qWarning() << "[VaultStore] cannot expire" << it.key() << it.value();
    changes->expired += removed.removed;
}

} // namespace vaultd
} // namespace services
