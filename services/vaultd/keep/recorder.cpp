#include "vaultd/keep/recorder.h"

#include "core/posixfile.h"

#include <QDebug>
#include <QFile>
#include <QJsonDocument>

#include <cerrno>
#include <fcntl.h>

namespace services::vaultd {

namespace {

constexpr qint64 kSettleMs = 1000;        // So long a deletion may take to be told.
constexpr qint64 kAbandonMs = 60 * 1000;  // So long a file whose deletion is not done is held.
constexpr qint64 kComesBackMs = 5 * 1000; // A program that replaces a file does it within this.
constexpr int kRecordBatch = 2000;        // Files in one transaction of the index.
constexpr int kSealBatch = 1000;          // So many, then restores and the like have their turn.
constexpr char kAccessList[] = "system.posix_acl_access";

bool statOf(const QByteArray &path, struct stat *info)
{
    return ::lstat(path.constData(), info) == 0;
}

/// All of a state but the time of its last change, which a link or another name's end changes, too.
QString lastingState(const QString &state)
{
    return state.section(QLatin1Char(':'), 0, 3);
}

IndexedFile indexedFrom(const KeptFile &kept, const struct stat &content)
{
    IndexedFile indexed;
    indexed.file = kept.file;
    indexed.content = content;
    indexed.file.fileSize = qint64(content.st_size);
    indexed.originalInode = originalInodeOf(kept.file);
    indexed.isSealed = content.st_uid == ::geteuid() && kept.means != Means::Link;
    return indexed;
}

} // namespace

bool layoutOf(const VaultFile &file, const VaultLayout &home, VaultLayout *layout, QString *error)
{
    *layout = file.vaultParent.isEmpty() ? home : VaultLayout::ofMount(file.vaultParent);
    return file.vaultParent.isEmpty() || layout->prepareExisting(error);
}

Recorder::Recorder(const VaultLayout &layout, VaultIndex &index, const std::atomic<bool> &stop)
    : m_layout(layout)
    , m_index(index)
    , m_stop(stop)
{}

bool Recorder::run(VaultKeeper &keeper, VaultChanges *changes)
{
    const QVector<KeptFile> all = keeper.kept();
    bool mustComeBack = false;
    Group group;
    for (int i = 0; i < all.size() && !m_stop; ++i) {
        settle(all.at(i), keeper.reserve(), &group);
        if (group.over.size() < kRecordBatch)
            continue;
        if (!publish(group, keeper, changes))
            return true;
        mustComeBack = mustComeBack || group.mustComeBack;
        group = Group();
    }
    if (!publish(group, keeper, changes))
        return true;
    if (!m_stop)
        markReplaced();
    return mustComeBack || group.mustComeBack || !m_recent.isEmpty();
}

/// Records the file if its deletion is over.
void Recorder::settle(const KeptFile &kept, Reserve &reserve, Group *group) const
{
    VaultLayout layout = m_layout;
    QString error;
    if (!layoutOf(kept.file, m_layout, &layout, &error)) {
        group->mustComeBack = true;
        return;
    }
    const VaultDir::Change change(layout.dir());
    IndexedFile indexed;
    switch (verdictOn(kept, layout)) {
    case Verdict::Wait:
        group->mustComeBack = true;
        return;
    case Verdict::Drop:
        ::unlink(QFile::encodeName(layout.content(kept.file.id)).constData());
        ::unlink(QFile::encodeName(layout.record(kept.file.id)).constData());
        group->over.append(kept.file.id);
        return;
    case Verdict::List:
        break;
    }
    if (!record(kept, layout, reserve, &indexed)) {
        group->mustComeBack = true;
        return;
    }
    group->added.append(indexed);
    group->over.append(kept.file.id);
    group->recent.append({kept.file.id, kept.file.pathBytes(), kept.sinceMs});
}

bool Recorder::publish(const Group &group, VaultKeeper &keeper, VaultChanges *changes)
{
    QString error;
    if (!m_index.change(QStringList(), group.added, &error)) {
        qWarning() << "[Recorder]" << error;
        return false;
    }
    for (const IndexedFile &indexed : group.added) {
        changes->added.append(indexed.file);
        m_hasUnsealed = m_hasUnsealed || !indexed.isSealed;
    }
    m_recent += group.recent;
    if (!group.over.isEmpty())
        keeper.flush();
    keeper.recorded(group.over);
    return true;
}

/// A file that nothing was told of counts as deleted once its name is gone or another file's.
Recorder::Verdict Recorder::verdictOn(const KeptFile &kept, const VaultLayout &layout) const
{
    struct stat content;
    if (!look(layout.content(kept.file.id), &content))
        // Not taken yet, or never.
        return keptClockMs() - kept.sinceMs < kAbandonMs ? Verdict::Wait : Verdict::Drop;
    if (kept.state == KeptFile::State::Deleted)
        return Verdict::List;
    if (kept.state == KeptFile::State::LetGo)
        return Verdict::Drop;
    const qint64 age = keptClockMs() - kept.sinceMs;
    if (age < kSettleMs)
        return Verdict::Wait;
    const QByteArray path =
        kept.file.deletedFrom.isEmpty() ? kept.file.pathBytes() : kept.file.deletedFrom;
    struct stat now;
    const bool isThere = statOf(path, &now) &&
                         ((now.st_dev == content.st_dev && now.st_ino == content.st_ino) ||
                          lastingState(stateText(now)) == lastingState(kept.file.originalState));
    if (!isThere)
        return Verdict::List;
    return age < kAbandonMs ? Verdict::Wait : Verdict::Drop;
}

bool Recorder::record(const KeptFile &kept, const VaultLayout &layout, Reserve &reserve,
                      IndexedFile *indexed) const
{
    struct stat content;
    int code = look(layout.content(kept.file.id), &content) ? 0 : ENOENT;
    if (code == 0)
        while ((code = putRecord(layout, kept.file)) == ENOSPC && reserve.release())
            continue;
    if (code != 0)
        qWarning() << "[Recorder] no record for" << kept.file.originalPath << code;
    else
        *indexed = indexedFrom(kept, content);
    return code == 0;
}

/// Where a file is again, the one in the vault is the first to go when space is short.
void Recorder::markReplaced()
{
    const qint64 now = keptClockMs();
    QVector<Recent> left;
    for (const Recent &recent : qAsConst(m_recent)) {
        struct stat info;
        if (now - recent.sinceMs < kComesBackMs)
            left.append(recent);
        else if (statOf(recent.path, &info) && S_ISREG(info.st_mode) &&
                 !m_index.setReplaced(recent.id))
            qWarning() << "[Recorder] cannot mark as replaced:" << recent.id;
    }
    m_recent = left;
}

void Recorder::sealSome(qint64 copyLimit)
{
    if (!m_hasUnsealed || m_stop)
        return;
    qint64 last = m_sealedUpTo;
    const QVector<VaultFile> files = m_index.unsealed(&last, kSealBatch);
    QStringList sealed;
    int looked = 0;
    for (; looked < files.size() && !m_stop; ++looked)
        if (sealOne(files.at(looked), copyLimit))
            sealed.append(files.at(looked).id);
    m_wasBusy = !m_index.setSealed(sealed) || sealed.size() < files.size() || m_wasBusy;
    m_sealedUpTo = files.size() < kSealBatch ? 0 : last;
    if (isAmidPass())
        return;
    m_hasUnsealed = m_wasBusy;
    m_wasBusy = false;
}

bool Recorder::sealOne(const VaultFile &file, qint64 copyLimit)
{
    VaultLayout layout = m_layout;
    VaultFile recorded;
    QString error;
    if (!layoutOf(file, m_layout, &layout, &error) ||
        !readRecord(layout, file.id, &recorded, &error))
        return false;
    const core::Descriptor folder(layout.openFolder());
    const QByteArray name = VaultLayout::contentName(file.id).toLatin1();
    const core::Descriptor content(
        ::openat(folder.get(), name.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info;
    if (!content.isOpen() || ::fstat(content.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    // An earlier version did not record what is about to be changed.
    if (recorded.mode < 0) {
        recorded.setAttributes(info);
        const QByteArray list = accessListOf(content.get());
        if (!list.isEmpty())
            recorded.attributes.insert(kAccessList, list);
        if (putRecord(layout, recorded) != 0)
            return false;
    }
    switch (seal(folder.get(), name)) {
    case Seal::Done:
        return true;
    case Seal::Shared: {
        const VaultDir::Change change(layout.dir());
        return unshare(folder.get(), name, VaultLayout::unfinishedContentName(file.id).toLatin1(),
                       copyLimit) == 0;
    }
    case Seal::Busy:
    case Seal::Failed:
        break;
    }
    return false;
}

} // namespace services::vaultd
