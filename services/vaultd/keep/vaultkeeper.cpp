#include "vaultd/keep/vaultkeeper.h"

#include "common/text.h"
#include "vaultd/failure.h"
#include "vaultd/keep/mountvault.h"

#include <QDateTime>
#include <QDebug>
#include <QFile>

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr qint64 kLongLog = 4 * 1024 * 1024; // bytes
constexpr qint64 kLatelyMs = 10 * 1000;
constexpr char kAccessList[] = "system.posix_acl_access";

/// "/a/b" is inside "/a" and inside itself.
bool isBelow(const QByteArray &path, const QByteArray &dir)
{
    return path.startsWith(dir) &&
           (path.size() == dir.size() || dir.endsWith('/') || path.at(dir.size()) == '/');
}

/// What a line of the log still tells of the file.
bool originalOf(const VaultFile &file, struct stat *info)
{
    info->st_ino = ino_t(originalInodeOf(file));
    info->st_size = off_t(file.fileSize);
    info->st_mtim = file.modified;
    return info->st_ino != 0;
}

} // namespace

qint64 keptClockMs()
{
    using namespace std::chrono;
    return qint64(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

VaultKeeper::VaultKeeper(const VaultLayout &layout, uid_t owner, const QString &stateDir)
    : m_layout(layout)
    , m_owner(owner)
    , m_reserve(layout)
    , m_log(stateDir)
    , m_index(stateDir)
{}

bool VaultKeeper::open(QString *error)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const QVector<VaultFile> left = m_log.read();
    for (const VaultFile &file : left) {
        VaultLayout layout = m_layout;
        VaultFile recorded;
        QString why;
        if (!file.vaultParent.isEmpty())
            layout = VaultLayout::ofMount(file.vaultParent);
        // Most have got their records long since.
        if ((file.vaultParent.isEmpty() || layout.prepareExisting(&why)) &&
            readRecord(layout, file.id, &recorded, &why) && file.vaultParent.isEmpty())
            continue;
        KeptFile kept;
        kept.file = file;
        kept.means = Means::Link;
        kept.sinceMs = keptClockMs(); // The program that deletes may still be at it.
        // What has its content is held; the program may have put it into the spool, too.
        struct stat content;
        if (look(layout.content(file.id), &content) && originalOf(file, &kept.original))
            m_ids.insert({kept.original.st_ino, file.pathBytes()}, file.id);
        m_kept.insert(file.id, kept);
    }
    const int code = m_log.open();
    return code == 0 || fail(error, QStringLiteral("无法打开保护日志"), code);
}

void VaultKeeper::setRules(const KeepRules &rules)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_rules = rules;
}

void VaultKeeper::setWake(const std::function<void()> &wake)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_wake = wake;
}

qint64 VaultKeeper::copyLimit() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_rules.copyLimitBytes;
}

bool VaultKeeper::isLeftOut(const QByteArray &path) const
{
    if ((path + '/').contains(QByteArray("/") + vault::kVaultDir + '/'))
        return true;
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const QString &dir : m_rules.leftOutDirs)
        if (isBelow(path, dir.toUtf8()))
            return true;
    for (const QString &name : m_rules.leftOutNames)
        if (path.contains('/' + name.toUtf8() + '/'))
            return true;
    return false;
}

bool VaultKeeper::keep(const Deletion &deletion, QString *id, QString *error)
{
    KeptFile kept;
    if (::fstat(deletion.file, &kept.original) != 0 || !S_ISREG(kept.original.st_mode))
        return fail(error, QStringLiteral("只能保护普通文件"));
    const QByteArray &path =
        deletion.originalPath.isEmpty() ? deletion.path : deletion.originalPath;
    if (isLeftOut(path) || isLeftOut(deletion.path))
        return fail(error, QStringLiteral("文件位于不保护的目录中"));
    VaultFile &file = kept.file;
    file.id = newId();
    file.setPath(path);
    file.setAttributes(kept.original);
    file.fileSize = qint64(kept.original.st_size);
    file.deletedAt = file.keptSince = QDateTime::currentSecsSinceEpoch();
    file.originalState = stateText(kept.original);
    file.isReplaced = deletion.isReplaced;
    if (deletion.path != path)
        file.deletedFrom = deletion.path;
    const QByteArray accessList = accessListOf(deletion.file);
    if (!accessList.isEmpty())
        file.attributes.insert(kAccessList, accessList);
    kept.sinceMs = keptClockMs();

    bool isKnown = false;
    int code = 0;
    if (!begin(kept, id, &isKnown, &code))
        return fail(error, QStringLiteral("无法记录文件"), code);
    if (isKnown)
        return true;
    while ((code = take(deletion, &kept)) == ENOSPC && m_reserve.release())
        continue;
    if (code == 0)
        return true;
    giveUp(kept);
    return fail(error, QStringLiteral("无法保护 %1").arg(file.originalPath), code);
}

/// Notes the file. One that is waiting under the same inode and path, of a program that has not
/// heard the answer, is not taken twice.
bool VaultKeeper::begin(const KeptFile &kept, QString *id, bool *isKnown, int *code)
{
    const Key key{kept.original.st_ino, kept.file.pathBytes()};
    const std::lock_guard<std::mutex> lock(m_mutex);
    const QString former = m_ids.value(key);
    const auto known = m_kept.constFind(former);
    *isKnown = known != m_kept.constEnd() && known->state == KeptFile::State::Waiting &&
               known->original.st_mtim.tv_sec == kept.original.st_mtim.tv_sec &&
               known->original.st_mtim.tv_nsec == kept.original.st_mtim.tv_nsec &&
               known->original.st_size == kept.original.st_size;
    *id = *isKnown ? former : kept.file.id;
    if (*isKnown)
        return true;
    while ((*code = m_log.note(kept.file)) == ENOSPC && m_reserve.release())
        continue;
    if (*code != 0)
        return false;
    m_kept.insert(kept.file.id, kept);
    m_ids.insert(key, kept.file.id);
    const qint64 now = keptClockMs();
    if (now - m_prunedMs > kLatelyMs) {
        m_prunedMs = now;
        for (auto it = m_tookMs.begin(); it != m_tookMs.end();)
            it = now - *it > kLatelyMs ? m_tookMs.erase(it) : ++it;
    }
    m_tookMs.insert(kept.file.deletedFrom.isEmpty() ? key.path : kept.file.deletedFrom, now);
    return true;
}

int VaultKeeper::take(const Deletion &deletion, KeptFile *kept)
{
    const core::Descriptor folder(m_layout.openFolder());
    if (!folder.isOpen())
        return errno;
    const QByteArray name = VaultLayout::contentName(kept->file.id).toLatin1();
    int code = takeIn(deletion.file, kept->original, folder.get(), name, copyLimit(), &kept->means);
    if (code == EXDEV)
        code = takeElsewhere(deletion, kept);
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto held = m_kept.find(kept->file.id);
    if (code == 0 && held != m_kept.end())
        held->means = kept->means;
    return code;
}

/// Into the vault of the file system that the file is on or, if it can have none, as a copy.
int VaultKeeper::takeElsewhere(const Deletion &deletion, KeptFile *kept)
{
    const QByteArray name = VaultLayout::contentName(kept->file.id).toLatin1();
    const QByteArray mount =
        m_layout.dir() ? mountFor(deletion.path, kept->original.st_dev) : QByteArray();
    QString error;
    if (!mount.isEmpty()) {
        const VaultLayout layout = VaultLayout::ofMount(mount);
        kept->file.vaultParent = mount;
        kept->file.user = m_owner;
        if (layout.prepare(&error)) {
            int code = noteAnew(kept->file);
            if (code == 0)
                code = putRecord(layout, kept->file);
            if (code == 0)
                code = takeIn(deletion.file, kept->original, layout.dir()->root(), name,
                              copyLimit(), &kept->means);
            if (code == 0 || code == EFBIG)
                return code;
            ::unlink(QFile::encodeName(layout.record(kept->file.id)).constData());
        } else {
            qWarning() << "[VaultKeeper] no vault on" << mount << error;
        }
        kept->file.vaultParent.clear();
        kept->file.user = -1;
        const int code = noteAnew(kept->file);
        if (code != 0)
            return code;
    }
    kept->means = Means::Copy;
    const core::Descriptor folder(m_layout.openFolder());
    return folder.isOpen() ? copyIn(deletion.file, kept->original, folder.get(), name, copyLimit())
                           : errno;
}

/// What is known of it has changed.
int VaultKeeper::noteAnew(const VaultFile &file)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const int code = m_log.note(file);
    const auto kept = m_kept.find(file.id);
    if (code == 0 && kept != m_kept.end())
        kept->file = file;
    return code;
}

void VaultKeeper::giveUp(const KeptFile &kept)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_ids.remove({kept.original.st_ino, kept.file.pathBytes()});
    m_kept.remove(kept.file.id);
    if (m_log.forget(kept.file.id) != 0)
        qWarning() << "[VaultKeeper] a line of the log stays:" << kept.file.id;
}

void VaultKeeper::settle(const QString &id, bool isDeleted)
{
    std::function<void()> wake;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto kept = m_kept.find(id);
        if (kept == m_kept.end() || kept->state != KeptFile::State::Waiting)
            return;
        kept->state = isDeleted ? KeptFile::State::Deleted : KeptFile::State::LetGo;
        if (!isDeleted)
            m_ids.remove({kept->original.st_ino, kept->file.pathBytes()});
        wake = m_wake;
    }
    if (wake)
        wake();
}

bool VaultKeeper::holds(const struct stat &file, const QByteArray &path)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto kept = m_kept.constFind(m_ids.value({file.st_ino, path}));
        if (kept != m_kept.constEnd() && kept->original.st_size == file.st_size &&
            kept->original.st_mtim.tv_sec == file.st_mtim.tv_sec &&
            kept->original.st_mtim.tv_nsec == file.st_mtim.tv_nsec)
            return true;
    }
    const std::lock_guard<std::mutex> lock(m_indexMutex);
    return m_index.openForReading() && m_index.holds(file, path);
}

bool VaultKeeper::note(const VaultFile &file, QString *error)
{
    KeptFile kept;
    kept.file = file;
    kept.means = Means::Link;
    kept.state = KeptFile::State::Deleted;
    kept.sinceMs = keptClockMs();
    QString id;
    bool isKnown = false;
    int code = 0;
    return begin(kept, &id, &isKnown, &code) || fail(error, QStringLiteral("无法记录文件"), code);
}

bool VaultKeeper::tookLately(const QByteArray &path) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto took = m_tookMs.constFind(path);
    return took != m_tookMs.constEnd() && keptClockMs() - *took <= kLatelyMs;
}

QVector<KeptFile> VaultKeeper::kept() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    QVector<KeptFile> files;
    files.reserve(m_kept.size());
    for (const KeptFile &kept : m_kept)
        files.append(kept);
    return files;
}

bool VaultKeeper::isKept(const QString &id) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_kept.contains(id);
}

void VaultKeeper::recorded(const QStringList &ids)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const QString &id : ids) {
        const auto kept = m_kept.find(id);
        if (kept == m_kept.end())
            continue;
        const Key key{kept->original.st_ino, kept->file.pathBytes()};
        if (m_ids.value(key) == id)
            m_ids.remove(key);
        m_kept.erase(kept);
    }
}

void VaultKeeper::flush()
{
    core::Descriptor log(-1);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        log.reset(m_log.duplicate());
    }
    // Deletions go on meanwhile.
    if (!log.isOpen() || ::fdatasync(log.get()) != 0)
        qWarning() << "[VaultKeeper] the log could not be flushed:" << errno;
}

void VaultKeeper::shorten(int syncFolder)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_log.size() < kLongLog)
            return;
        QVector<VaultFile> files;
        for (const KeptFile &kept : qAsConst(m_kept))
            files.append(kept.file);
        const int code = m_log.restart(files);
        if (code != 0 && code != EEXIST) {
            qWarning() << "[VaultKeeper] the log could not begin anew:" << code;
            return;
        }
    }
    // Records are written without waiting for the medium; now they all get there.
    flush();
    if (::syncfs(syncFolder) == 0)
        m_log.dropFormer();
}

} // namespace services::vaultd
