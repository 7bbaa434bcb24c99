#include "vaultd/vaultstore.h"

#include "common/outputfile.h"
#include "vaultd/expiry.h"
#include "vaultd/failure.h"
#include "vaultd/keep/mountvault.h"

#include <QDebug>
#include <QFile>

#include <cerrno>
#include <unistd.h>

namespace services {
namespace vaultd {

namespace {

// So many files are removed before the folders are flushed, and before a stop is heard.
constexpr int kBatch = 500;
constexpr int kAddBatch = 5000;    // Files in one transaction of the index.
constexpr int kLargeVault = 20000; // Files; looking through so many takes longer than a start may.

/// 0, also if there was nothing; or the error.
int removePath(const QString &path)
{
    return ::unlink(QFile::encodeName(path).constData()) == 0 || errno == ENOENT ? 0 : errno;
}

} // namespace

VaultStore::VaultStore(const VaultLayout &layout, const QString &stateDir,
                       const std::atomic<bool> &stop)
    : m_layout(layout)
    , m_stateDir(stateDir)
    , m_restorer(layout, stateDir + QStringLiteral("/restoring.json"), stop)
    , m_stop(stop)
    , m_index(stateDir)
    , m_recorder(layout, m_index, stop)
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
    if (!m_index.open(error))
        return false;
    m_stamp = m_index.stamp();
    m_recorder.expectUnsealed();
    if (m_index.count() >= kLargeVault)
        return true;
    VaultChanges changes;
    return refresh(&changes, error);
}

bool VaultStore::recordKept(VaultChanges *changes)
{
    if (!m_keeper)
        return false;
    const VaultLock lock(m_layout);
    QString error;
    if (!lock.isHeld(&error)) {
        qWarning() << "[VaultStore]" << error;
        return true;
    }
    const bool isInStep = !m_stamp.isEmpty() && m_stamp == stampNow();
    const bool mustComeBack = m_recorder.run(*m_keeper, changes);
    if (isInStep)
        keepStamp();
    const core::Descriptor folder(m_layout.openFolder());
    m_keeper->shorten(folder.get());
    return mustComeBack;
}

bool VaultStore::seal()
{
    m_recorder.sealSome(m_keeper ? m_keeper->copyLimit() : 0);
    return m_recorder.hasUnsealed();
}

bool VaultStore::refresh(VaultChanges *changes, QString *error)
{
    if (!m_layout.prepare(error))
        return false;
    {
        const VaultLock lock(m_layout);
        if (!lock.isHeld(error))
            return false;
        if (m_stamp.isEmpty() || m_stamp != stampNow()) {
            Look look{m_layout, QByteArray(), {}, {}, {}, {}};
            if (!reconcile(&look, changes, error))
                return false;
            if (!m_stop)
                keepStamp();
        }
    }
    if (m_layout.dir())
        reconcileMounts(changes);
    if (m_keeper)
        m_keeper->reserve().refill();
    return true;
}

/// What the index holds becomes what the vault holds.
bool VaultStore::reconcile(Look *look, VaultChanges *changes, QString *error)
{
    if (!list(look, error))
        return false;
    const Ids known = m_index.ids(look->parent);
    for (const QString &id : known)
        if (!look->records.contains(id) || !look->contents.contains(id))
            look->removed.append(id);
    for (const QString &id : qAsConst(look->records))
        if (!m_stop && !known.contains(id) && !m_skipped.contains(id))
            readNew(id, look, changes);
    // Nothing is known of a content on a removable disk: it may be anyone's.
    if (look->parent.isEmpty())
        for (const QString &id : qAsConst(look->contents))
            if (!m_stop && !look->records.contains(id) && !m_skipped.contains(id))
                adopt(id, look, changes);
    return publish(look, changes, error);
}

bool VaultStore::publish(Look *look, VaultChanges *changes, QString *error)
{
    const bool isDone = m_index.change(look->removed, look->added, error);
    if (isDone) {
        changes->removed += look->removed;
        for (const IndexedFile &indexed : qAsConst(look->added))
            changes->added.append(indexed.file);
    }
    look->removed.clear();
    look->added.clear();
    return isDone;
}

/// Disks come and go with what is on them.
void VaultStore::reconcileMounts(VaultChanges *changes)
{
    QSet<QByteArray> gone = m_index.vaults();
    const QList<QByteArray> mounts = mountsWithVaults();
    for (const QByteArray &mount : mounts) {
        Look look{VaultLayout::ofMount(mount), mount, {}, {}, {}, {}};
        QString error;
        if (look.layout.root() == m_layout.root() || !look.layout.prepareExisting(&error))
            continue;
        gone.remove(mount);
        const VaultLock lock(look.layout);
        if (!lock.isHeld(&error) || !reconcile(&look, changes, &error))
            qWarning() << "[VaultStore]" << mount << error;
    }
    for (const QByteArray &mount : qAsConst(gone)) {
        Look look{m_layout, mount, {}, {}, {}, m_index.ids(mount).values()};
        QString error;
        if (!publish(&look, changes, &error))
            qWarning() << "[VaultStore]" << error;
    }
}

bool VaultStore::list(Look *look, QString *error)
{
    const auto take = [](const QStringList &names, const QString &suffix, Ids *ids) {
        for (const QString &name : names) {
            const QString id = idOf(name, suffix);
            if (!id.isEmpty())
                ids->insert(id);
        }
    };
    const VaultLayout &layout = look->layout;
    QStringList names;
    if (!listNames(layout.meta(), &names, error))
        return false;
    removeUnfinished(layout.meta(), names, VaultLayout::unfinishedRecordName(QString()));
    take(names, VaultLayout::recordName(QString()), &look->records);
    if (!listNames(layout.folder(), &names, error))
        return false;
    removeUnfinished(layout.folder(), names, VaultLayout::unfinishedContentName(QString()));
    take(names, VaultLayout::contentName(QString()), &look->contents);
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
void VaultStore::readNew(const QString &id, Look *look, VaultChanges *changes)
{
    VaultFile file;
    QString error;
    if (m_keeper && m_keeper->isKept(id))
        return; // Its deletion is not over.
    if (!readRecord(look->layout, id, &file, &error)) {
        skip(id, error);
        return;
    }
    if (!look->parent.isEmpty() && (file.user < 0 || uid_t(file.user) != m_layout.owner())) {
        m_skipped.insert(id); // Another user's.
        return;
    }
    struct stat original;
    const bool hasOriginal =
        !file.originalPath.isEmpty() && ::lstat(file.pathBytes().constData(), &original) == 0;
    if (!look->contents.contains(id)) {
        if (!hasOriginal)
            qWarning() << "[VaultStore] record dropped, its content is gone:" << file.originalPath;
        drop(look->layout, id);
        return;
    }
    struct stat content;
    if (!vaultd::look(look->layout.content(id), &content) || !S_ISREG(content.st_mode)) {
        skip(id, QStringLiteral("内容不是普通文件"));
        return;
    }
    const bool isInPlace =
        hasOriginal &&
        ((original.st_dev == content.st_dev && original.st_ino == content.st_ino) ||
         (!file.originalState.isEmpty() && stateText(original) == file.originalState));
    if (isInPlace) {
        qInfo() << "[VaultStore] copy dropped, its original is in place:" << file.originalPath;
        drop(look->layout, id);
        return;
    }
    add(file, content, look, changes);
}

/// A content that nothing is known of.
void VaultStore::adopt(const QString &id, Look *look, VaultChanges *changes)
{
    struct stat content;
    QString error;
    if (m_keeper && m_keeper->isKept(id))
        return;
    if (!vaultd::look(look->layout.content(id), &content) || !S_ISREG(content.st_mode)) {
        skip(id, QStringLiteral("内容不是普通文件"));
        return;
    }
    VaultFile file;
    file.id = id;
    file.fileName = QStringLiteral("恢复的文件-%1").arg(id);
    file.fileSize = qint64(content.st_size);
    file.deletedAt = qint64(content.st_ctim.tv_sec);
    if (!writeRecord(look->layout, file, &error)) {
        qWarning() << "[VaultStore] no record for" << id << error;
        return;
    }
    qWarning() << "[VaultStore] content without a record is listed as" << file.fileName;
    add(file, content, look, changes);
}

void VaultStore::drop(const VaultLayout &layout, const QString &id)
{
    if (removePath(layout.content(id)) == 0) {
        syncDirectory(layout.folder());
        removePath(layout.record(id));
    }
}

void VaultStore::add(VaultFile file, const struct stat &content, Look *look, VaultChanges *changes)
{
    file.fileSize = qint64(content.st_size);
    file.keptSince = file.deletedAt >= 1 ? file.deletedAt : qint64(content.st_ctim.tv_sec);
    file.vaultParent = look->parent;
    IndexedFile indexed;
    indexed.file = file;
    indexed.content = content;
    indexed.originalInode = originalInodeOf(file);
    indexed.isSealed = content.st_uid == ::geteuid();
    if (!indexed.isSealed)
        m_recorder.expectUnsealed();
    look->added.append(indexed);
    QString error;
    if (look->added.size() >= kAddBatch && !publish(look, changes, &error))
        qWarning() << "[VaultStore]" << error;
}

void VaultStore::skip(const QString &id, const QString &why)
{
    qWarning() << "[VaultStore] not listed:" << id << why;
    m_skipped.insert(id);
}

bool VaultStore::restore(const QString &id, const QString &targetDir, QString *placed,
                         VaultChanges *changes, QString *error)
{
    VaultFile listed;
    VaultFile file;
    VaultLayout layout = m_layout;
    if (!m_index.find(id, &listed))
        return fail(error, QStringLiteral("保护区中没有这个文件"));
    if (!layoutOf(listed, m_layout, &layout, error))
        return false;
    // The list does not hold all that a file had.
    if (!readRecord(layout, id, &file, error))
        file = listed;
    file.vaultParent = listed.vaultParent;
    const bool isHome = listed.vaultParent.isEmpty();
    const QString journal = m_stateDir + QStringLiteral("/restoring.json");
    const bool isDone =
        isHome ? m_restorer.restore(file, targetDir, placed, error)
               : Restorer(layout, journal, m_stop).restore(file, targetDir, placed, error);
    if (!isDone)
        return false;
    forget({id}, changes);
    return true;
}

/// Of what is no longer in a vault. The index is put right by the next refresh if need be.
void VaultStore::forget(const QStringList &ids, VaultChanges *changes)
{
    QString error;
    if (!m_index.change(ids, {}, &error)) {
        qWarning() << "[VaultStore]" << error;
        m_stamp.clear();
    }
    changes->removed += ids;
}

/// 0 or the error. *layout: of the vault that it was in.
int VaultStore::removeContent(const QString &id, VaultLayout *layout)
{
    VaultFile file;
    QString error;
    if (!m_index.find(id, &file))
        return ENOENT;
    if (!layoutOf(file, m_layout, layout, &error))
        return ENODEV;
    const VaultDir::Change change(layout->dir());
    return removePath(layout->content(id));
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
        const bool isInStep = !m_stamp.isEmpty() && m_stamp == stampNow();
        // The contents first: a record alone is dropped at the next start, a content comes back.
        QStringList gone;
        QVector<VaultLayout> places;
        for (const QString &id : batch) {
            VaultLayout layout = m_layout;
            const int code = removeContent(id, &layout);
            if (code == ENOENT)
                failures->insert(id, QStringLiteral("保护区中没有这个文件"));
            else if (code != 0)
                failures->insert(id, (fail(&error, QStringLiteral("无法删除"), code), error));
            if (code != 0)
                continue;
            gone.append(id);
            places.append(layout);
        }
        syncDirectory(m_layout.folder());
        for (int i = 0; i < gone.size(); ++i)
            removePath(places.at(i).record(gone.at(i)));
        syncDirectory(m_layout.meta());
        forget(gone, changes);
        if (isInStep)
            keepStamp();
    }
}

void VaultStore::expire(const VaultConfig &limits, qint64 now, qint64 freeBytes,
                        VaultChanges *changes)
{
    Expiry expiry(limits, now, m_index.usedBytes(), freeBytes);
    QStringList ids;
    m_index.visitForExpiry(expiry.oldest(), [&expiry, &ids](const VaultFile &file) {
        const bool mustGo = expiry.takes(file);
        if (mustGo)
            ids.append(file.id);
        return mustGo;
    });
    if (ids.isEmpty())
        return;
    VaultChanges removed;
    QHash<QString, QString> failures;
    remove(ids, &removed, &failures);
    for (auto it = failures.cbegin(); it != failures.cend(); ++it)
        qWarning() << "[VaultStore] cannot expire" << it.key() << it.value();
    changes->expired += removed.removed;
}

/// Which folders these are, and when a name in them last changed. While a keeper puts contents in
/// at any time, only the records' folder tells of others.
QByteArray VaultStore::stampNow() const
{
    QStringList states;
    for (const QString &dir : {m_layout.meta(), m_layout.folder()}) {
        struct stat info;
        if (::stat(QFile::encodeName(dir).constData(), &info) != 0)
            return QByteArray();
        states.append(stateText(info));
        if (m_layout.dir())
            break;
    }
    return states.join(QLatin1Char(' ')).toLatin1();
}

void VaultStore::keepStamp()
{
    m_stamp = stampNow();
    if (!m_index.setStamp(m_stamp))
        m_stamp.clear();
}

} // namespace vaultd
} // namespace services
