#include "vaultd/shadow/shadowbox.h"

#include "common/text.h"
#include "core/directorystream.h"
#include "vaultd/failure.h"

#include <QDateTime>
#include <QDebug>

#include <cerrno>
#include <fcntl.h>

namespace services::vaultd {

namespace {

constexpr char kShadowDir[] = ".shadow";
constexpr int kGraceMs = 1000; // So long the hook may take to report a deletion.

bool isSameState(const struct stat &a, const struct stat &b)
{
    return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec && a.st_mode == b.st_mode;
}

bool isSameChange(const struct stat &a, const struct stat &b)
{
    return a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

void removeAll(int dir)
{
    const int fd = ::openat(dir, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const core::DirectoryStream stream(fd < 0 ? nullptr : ::fdopendir(fd));
    while (const struct dirent *entry = stream ? ::readdir(stream.get()) : nullptr)
        ::unlinkat(dir, entry->d_name, 0);
}

} // namespace

ShadowBox::ShadowBox(const VaultLayout &layout, uid_t owner, VaultKeeper &keeper)
    : m_layout(layout)
    , m_owner(owner)
    , m_keeper(keeper)
{}

bool ShadowBox::open(bool mayLink, QString *error)
{
    const core::Descriptor root(m_layout.openFolder());
    if (!root.isOpen() || (::mkdirat(root.get(), kShadowDir, 0700) != 0 && errno != EEXIST))
        return fail(error, QStringLiteral("无法创建第二道防线的目录"), errno);
    m_dir.reset(::openat(root.get(), kShadowDir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!m_dir.isOpen())
        return fail(error, QStringLiteral("无法打开第二道防线的目录"), errno);
    removeAll(m_dir.get());
    m_mayLink = mayLink;
    return m_mayLink || hasClones(m_dir.get()) ||
           fail(error, QStringLiteral("文件系统没有写时克隆，第二道防线未启用"));
}

void ShadowBox::take(int dir, const QByteArray &folder, const QByteArray &name)
{
    const core::Descriptor file(
        ::openat(dir, name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    Shadow shadow;
    // What somebody else put there, the user could not have lost.
    if (!file.isOpen() || ::fstat(file.get(), &shadow.info) != 0 || !S_ISREG(shadow.info.st_mode) ||
        shadow.info.st_uid != m_owner)
        return;
    const Key key(folder, name);
    const auto known = m_shadows.find(key);
    const bool isKnown = known != m_shadows.end();
    if (isKnown)
        known->walk = m_walk;
    if (isKnown && isSameState(known->info, shadow.info) &&
        (m_mayLink || isSameChange(known->info, shadow.info)))
        return;
    if (!isKnown && m_shadows.size() >= kMaxShadows)
        return;
    shadow.file = QByteArray::number(++m_next);
    shadow.walk = m_walk;
    shadow.accessList = accessListOf(file.get());
    Means means;
    // A limit of nothing: there are no copies here.
    if (takeIn(file.get(), shadow.info, m_dir.get(), shadow.file, 0, &means) != 0)
        return;
    if (isKnown)
        drop(*known);
    m_shadows.insert(key, shadow);
}

void ShadowBox::drop(const Shadow &shadow)
{
    ::unlinkat(m_dir.get(), shadow.file.constData(), 0);
}

void ShadowBox::remove(const QByteArray &folder, const QByteArray &name, const QByteArray &path)
{
    const auto shadow = m_shadows.find({folder, name});
    if (shadow == m_shadows.end())
        return;
    m_deleted.append({*shadow, path, keptClockMs() + kGraceMs});
    m_shadows.erase(shadow);
}

void ShadowBox::forget(const QByteArray &folder, const QByteArray &name)
{
    const auto shadow = m_shadows.find({folder, name});
    if (shadow == m_shadows.end())
        return;
    drop(*shadow);
    m_shadows.erase(shadow);
}

QVector<QPair<QByteArray, QByteArray>> ShadowBox::unseen() const
{
    QVector<Key> keys;
    for (auto it = m_shadows.cbegin(); it != m_shadows.cend(); ++it)
        if (it->walk != m_walk)
            keys.append(it.key());
    return keys;
}

int ShadowBox::recordDeleted(qint64 nowMs, bool *areRecorded)
{
    int done = 0;
    for (const Deleted &deleted : qAsConst(m_deleted)) {
        if (deleted.dueMs > nowMs)
            break;
        ++done;
        if (m_keeper.tookLately(deleted.path) || !record(deleted))
            drop(deleted.shadow);
        else
            *areRecorded = true;
    }
    m_deleted.remove(0, done);
    return m_deleted.isEmpty() ? -1 : int(qMax<qint64>(1, m_deleted.first().dueMs - nowMs));
}

bool ShadowBox::record(const Deleted &deleted)
{
    Shadow shadow = deleted.shadow;
    const core::Descriptor link(
        ::openat(m_dir.get(), shadow.file.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat info;
    // A link is the file itself, with what was changed since it was looked at.
    if (link.isOpen() && ::fstat(link.get(), &info) == 0 && info.st_ino == shadow.info.st_ino) {
        shadow.info = info;
        shadow.accessList = accessListOf(link.get());
    }
    VaultFile file;
    file.id = newId();
    file.setPath(deleted.path);
    file.setAttributes(shadow.info);
    file.fileSize = qint64(shadow.info.st_size);
    file.deletedAt = file.keptSince = QDateTime::currentSecsSinceEpoch();
    file.originalState = stateText(shadow.info);
    if (!shadow.accessList.isEmpty())
        file.attributes.insert("system.posix_acl_access", shadow.accessList);
    QString error;
    const core::Descriptor root(m_layout.openFolder());
    // As for any content: first what it is, then the content itself.
    if (!m_keeper.note(file, &error)) {
        qWarning() << "[ShadowBox]" << error;
        return false;
    }
    const QByteArray name = VaultLayout::contentName(file.id).toLatin1();
    if (::renameat(m_dir.get(), shadow.file.constData(), root.get(), name.constData()) == 0)
        return true;
    qWarning() << "[ShadowBox] a shadow could not become a content:" << errno;
    return false;
}

} // namespace services::vaultd
