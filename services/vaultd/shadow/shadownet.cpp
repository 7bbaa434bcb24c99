#include "vaultd/shadow/shadownet.h"

#include "core/directorystream.h"
#include "vaultd/failure.h"

#include <QDebug>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/fanotify.h>
#include <sys/resource.h>
#include <sys/syscall.h>

namespace services::vaultd {

namespace {

constexpr int kNice = 19;
// A file may be gone a few milliseconds after it was made; an event takes microseconds.
constexpr int kUrgent = -20;
constexpr int kIdlePriority = 3 << 13; // IOPRIO_CLASS_IDLE in its place of ioprio_set(2)

bool isStep(const char *name)
{
    return qstrcmp(name, ".") == 0 || qstrcmp(name, "..") == 0;
}

QByteArray below(const QByteArray &path, const QByteArray &name)
{
    return path.endsWith('/') ? path + name : path + '/' + name;
}

} // namespace

ShadowNet::ShadowNet(const VaultLayout &layout, uid_t owner, VaultKeeper &keeper)
    : m_layout(layout)
    , m_owner(owner)
    , m_keeper(keeper)
    , m_wakeUp(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{}

ShadowNet::~ShadowNet()
{
    stop();
}

void ShadowNet::stop()
{
    m_stop = true;
    ::eventfd_write(m_wakeUp.get(), 1);
    if (m_events.joinable())
        m_events.join();
    if (m_walker.joinable())
        m_walker.join();
    m_box.reset();
    m_folders.clear();
    m_isComplete = false;
}

bool ShadowNet::restart(const VaultConfig &config, bool isEnabled, QString *error)
{
    stop();
    m_config = config;
    if (!isEnabled || config.secondNet == VaultConfig::SecondNet::Never)
        return fail(error, QStringLiteral("第二道防线已关闭"));
    m_extensions.clear();
    for (const QString &extension : config.protectedExtensions)
        m_extensions.append('.' + extension.toLower().toUtf8());
    m_box = std::make_unique<ShadowBox>(m_layout, m_owner, m_keeper);
    const core::Descriptor folder(m_layout.openFolder());
    struct stat info;
    if (!folder.isOpen() || ::fstat(folder.get(), &info) != 0)
        return fail(error, QStringLiteral("保护区不可用"), errno);
    m_device = info.st_dev;
    if (!m_box->open(config.secondNet == VaultConfig::SecondNet::Always, error))
        return false;
    if (!m_folderEvents.open(folder.get()))
        return fail(error, QStringLiteral("无法监视文件系统"), errno);
    m_stop = false;
    m_mustWalk = true;
    eventfd_t count;
    ::eventfd_read(m_wakeUp.get(), &count);
    m_walker = std::thread([this] { walkAll(); });
    m_events = std::thread([this] { follow(); });
    return true;
}

void ShadowNet::follow()
{
    int timeoutMs = -1;
    ::setpriority(PRIO_PROCESS, id_t(::syscall(SYS_gettid)), kUrgent);
    while (!m_stop) {
        struct pollfd files[] = {{m_folderEvents.descriptor(), POLLIN, 0},
                                 {m_wakeUp.get(), POLLIN, 0}};
        ::poll(files, 2, timeoutMs);
        bool areRecorded = false;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            const QVector<FolderEvent> events = m_folderEvents.read();
            for (const FolderEvent &event : events)
                handle(event);
            timeoutMs = m_box->recordDeleted(keptClockMs(), &areRecorded);
        }
        if (areRecorded && m_wake)
            m_wake();
    }
}

void ShadowNet::handle(const FolderEvent &event)
{
    if (event.mask & FAN_Q_OVERFLOW) {
        qWarning() << "[ShadowNet] events were lost, the folders are looked through again";
        m_isComplete = false;
        m_mustWalk = true;
        return;
    }
    const auto folder = m_folders.constFind(event.folder);
    if (folder == m_folders.constEnd() || event.name.isEmpty() || event.name == ".")
        return;
    const QByteArray path = below(*folder, event.name);
    if (event.mask & FAN_ONDIR) {
        handleFolder(event, path);
        return;
    }
    if (!isProtected(event.name))
        return;
    // One event may stand for several in a row: what is there now tells which was the last.
    const core::Descriptor dir(openFolderByKey(m_layout.dir()->root(), event.folder));
    struct stat info;
    const bool isThere = dir.isOpen() && ::fstatat(dir.get(), event.name.constData(), &info,
                                                   AT_SYMLINK_NOFOLLOW) == 0;
    if (isThere)
        m_box->take(dir.get(), event.folder, event.name);
    else if (event.mask & FAN_DELETE)
        m_box->remove(event.folder, event.name, path);
    else if (event.mask & FAN_MOVED_FROM)
        m_box->forget(event.folder, event.name);
}

/// A folder that is new here brings what is in it; one that leaves takes it along.
void ShadowNet::handleFolder(const FolderEvent &event, const QByteArray &path)
{
    if (event.mask & FAN_MOVED_FROM)
        for (auto it = m_folders.begin(); it != m_folders.end();)
            it = *it == path || it->startsWith(path + '/') ? m_folders.erase(it) : ++it;
    if (event.mask & (FAN_CREATE | FAN_MOVED_TO))
        walk(path);
}

/// With the mutex held: only for what has just come.
void ShadowNet::walk(const QByteArray &path)
{
    QVector<QByteArray> waiting{path};
    while (!waiting.isEmpty() && !m_stop)
        lookInto(waiting.takeLast(), &waiting);
}

void ShadowNet::lookInto(const QByteArray &path, QVector<QByteArray> *deeper)
{
    if (isLeftOut(path))
        return;
    const core::Descriptor dir(
        ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info;
    if (!dir.isOpen() || ::fstat(dir.get(), &info) != 0 || info.st_dev != m_device)
        return;
    const QByteArray key = folderKey(dir.get());
    // Before its files are looked at: what changes in it from now on is told.
    if (key.isEmpty() || !m_folderEvents.watch(dir.get()))
        return;
    m_folders.insert(key, path);
    const int copy = ::openat(dir.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const core::DirectoryStream stream(copy < 0 ? nullptr : ::fdopendir(copy));
    while (const struct dirent *entry = stream && !m_stop ? ::readdir(stream.get()) : nullptr) {
        if (isStep(entry->d_name))
            continue;
        struct stat entryInfo;
        unsigned char type = entry->d_type;
        if (type == DT_UNKNOWN &&
            ::fstatat(dir.get(), entry->d_name, &entryInfo, AT_SYMLINK_NOFOLLOW) == 0)
            type = S_ISDIR(entryInfo.st_mode) ? DT_DIR : S_ISREG(entryInfo.st_mode) ? DT_REG : 0;
        if (type == DT_DIR)
            deeper->append(below(path, entry->d_name));
        else if (type == DT_REG && isProtected(entry->d_name))
            m_box->take(dir.get(), key, entry->d_name);
    }
}

void ShadowNet::walkAll()
{
    const auto thread = id_t(::syscall(SYS_gettid));
    ::setpriority(PRIO_PROCESS, thread, kNice);
    ::syscall(SYS_ioprio_set, 1 /* IOPRIO_WHO_PROCESS */, int(thread), kIdlePriority);
    while (!m_stop) {
        if (!m_mustWalk.exchange(false)) {
            struct pollfd file = {m_wakeUp.get(), POLLIN, 0};
            ::poll(&file, 1, 200);
            continue;
        }
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_box->beginWalk();
        }
        QVector<QByteArray> waiting;
        for (const QString &dir : m_config.protectedDirs)
            waiting.append(dir.toUtf8());
        while (!waiting.isEmpty() && !m_stop && !m_mustWalk) {
            // A folder at a time, so that events wait no longer than that.
            const std::lock_guard<std::mutex> lock(m_mutex);
            lookInto(waiting.takeLast(), &waiting);
        }
        if (m_stop || m_mustWalk)
            continue;
        const std::lock_guard<std::mutex> lock(m_mutex);
        settleUnseen();
        m_isComplete = true;
    }
}

/// What a walk did not find any more, although nothing was told of it, was deleted meanwhile.
void ShadowNet::settleUnseen()
{
    const QVector<QPair<QByteArray, QByteArray>> unseen = m_box->unseen();
    for (const auto &key : unseen) {
        const QByteArray folder = m_folders.value(key.first);
        const core::Descriptor dir(openFolderByKey(m_layout.dir()->root(), key.first));
        struct stat info;
        if (dir.isOpen() &&
            ::fstatat(dir.get(), key.second.constData(), &info, AT_SYMLINK_NOFOLLOW) == 0)
            m_box->forget(key.first, key.second); // It is elsewhere now.
        else if (!folder.isEmpty())
            m_box->remove(key.first, key.second, below(folder, key.second));
        else
            m_box->forget(key.first, key.second);
    }
}

bool ShadowNet::isProtected(const QByteArray &name) const
{
    const QByteArray lower = name.toLower();
    for (const QByteArray &extension : m_extensions)
        if (lower.size() > extension.size() && lower.endsWith(extension))
            return true;
    return false;
}

bool ShadowNet::isLeftOut(const QByteArray &path) const
{
    const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
    return name == vault::kVaultDir || m_config.excludedDirs.contains(QString::fromUtf8(path)) ||
           m_config.excludedNames.contains(QString::fromUtf8(name));
}

} // namespace services::vaultd
