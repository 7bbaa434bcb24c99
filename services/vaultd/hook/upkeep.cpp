#include "vaultd/hook/upkeep.h"

#include "core/mounttable.h"
#include "core/posixfile.h"
#include "vaultd/failure.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

// What could not be adopted is tried again after this; also the longest time for what inotify
// does not report, such as the end of a process that has spooled.
constexpr int kRetryMs = 1000;
constexpr int kIdleMs = 60 * 1000;

constexpr quint32 kArrivals = IN_CREATE | IN_MOVED_TO;

bool mayHoldTrash(const core::Mount &mount)
{
    static const QList<QByteArray> types = {"ext2", "ext3",  "ext4", "btrfs", "xfs",     "f2fs",
                                            "vfat", "exfat", "ntfs", "ntfs3", "fuseblk", "tmpfs"};
    return types.contains(mount.type) && !mount.isReadOnly() && mount.mountPoint != "/dev/shm";
}

} // namespace

Upkeep::Upkeep(const UserIdentity &user, const QByteArray &home, const QList<QByteArray> &spoolDirs,
               const FilesInHand &inHand, const HookService::KeeperOf &keeperOf,
               const OnTrashesChanged &onTrashesChanged)
    : m_home(home)
    , m_spoolDirs(spoolDirs)
    , m_onTrashesChanged(onTrashesChanged)
    , m_trashes(std::make_shared<TrashIndex>(user))
    , m_spool(user, *m_trashes, inHand, keeperOf)
{
    findTrashes();
}

Upkeep::~Upkeep()
{
    if (!m_thread.joinable())
        return;
    m_isStopped = true;
    const quint64 one = 1;
    while (::write(m_wake.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
    m_thread.join();
}

bool Upkeep::start(QString *error)
{
    m_notify.reset(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    m_wake.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    m_mountsChanged.reset(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    if (!m_notify.isOpen() || !m_wake.isOpen())
        return fail(error, QStringLiteral("无法监视回收站"), errno);
    // Before anything is deleted: what is in the trash now is known when start() returns.
    watchAll();
    m_thread = std::thread([this] { run(); });
    return true;
}

void Upkeep::findTrashes()
{
    QList<QByteArray> roots = {m_home + "/.local/share/Trash"};
    const QByteArray uid = QByteArray::number(m_trashes->user().uid);
    for (const core::Mount &mount : core::readMountTable()) {
        if (!mayHoldTrash(mount))
            continue;
        const QByteArray top = mount.mountPoint == "/" ? QByteArray() : mount.mountPoint;
        for (const QByteArray &root : {top + "/.Trash-" + uid, top + "/.Trash/" + uid}) {
            if (!roots.contains(root))
                roots.append(root);
        }
    }
    m_trashes->setRoots(roots);
}

Upkeep::Watched Upkeep::watch(const QByteArray &dir, Watch::Kind kind, const QByteArray &path)
{
    QString error;
    const ActAs user(m_trashes->user());
    if (!user.isActive(&error))
        return Watched::No;
    const int id = ::inotify_add_watch(m_notify.get(), dir.constData(),
                                       kArrivals | IN_ONLYDIR | IN_DONT_FOLLOW | IN_MASK_ADD);
    if (id < 0)
        return Watched::No;
    return m_watches.emplace(id, Watch{kind, path}).second ? Watched::Newly : Watched::Already;
}

void Upkeep::watchTrash(const QByteArray &root)
{
    const Watched watched = watch(root + "/files", Watch::Files, root);
    if (watched == Watched::Newly)
        m_trashes->learnAll(root);
    if (watched != Watched::No) {
        watch(root, Watch::Ancestor, root); // For other folders in it.
        return;
    }
    for (QByteArray dir = root; dir.size() > 1; dir = core::parentPath(dir)) {
        if (watch(dir, Watch::Ancestor, root) != Watched::No)
            return;
    }
}

bool Upkeep::mayLeadToTrash(const QByteArray &name) const
{
    if (name == "files" || name == "expunged")
        return true;
    for (const QByteArray &root : m_trashes->roots()) {
        if (root.split('/').contains(name))
            return true;
    }
    return false;
}

void Upkeep::watchAll()
{
    for (const QByteArray &root : m_trashes->roots())
        watchTrash(root);
    for (const QByteArray &dir : qAsConst(m_spoolDirs))
        watch(dir, Watch::Spool, dir);
}

void Upkeep::readEvents()
{
    alignas(inotify_event) std::array<char, 64 * 1024> buffer;
    bool isIncomplete = false; // Some trash may have come or gone.
    for (;;) {
        const ssize_t length = ::read(m_notify.get(), buffer.data(), buffer.size());
        if (length <= 0)
            break;
        for (ssize_t at = 0; at < length;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer.data() + at);
            at += ssize_t(sizeof *event + event->len);
            const auto found = m_watches.find(event->wd);
            if (event->mask & IN_Q_OVERFLOW) {
                m_watches.clear(); // All is read again.
                isIncomplete = true;
            } else if (found == m_watches.end()) {
                continue;
            } else if (event->mask & IN_IGNORED) {
                m_watches.erase(found);
                isIncomplete = true;
            } else if (found->second.kind == Watch::Files) {
                m_trashes->learn(found->second.path, QByteArray(event->name));
            } else if (found->second.kind == Watch::Spool) {
                m_hasNews = true;
            } else if ((event->mask & IN_ISDIR) && mayLeadToTrash(QByteArray(event->name))) {
                isIncomplete = true;
            }
        }
    }
    if (isIncomplete) {
        watchAll();
        m_onTrashesChanged();
    }
}

bool Upkeep::adoptAll()
{
    bool isAllDone = true;
    for (const QByteArray &dir : qAsConst(m_spoolDirs))
        isAllDone = m_spool.adopt(dir) && isAllDone;
    return isAllDone;
}

void Upkeep::run()
{
    std::array<pollfd, 3> events = {{{m_wake.get(), POLLIN, 0},
                                     {m_notify.get(), POLLIN, 0},
                                     {m_mountsChanged.get(), POLLPRI, 0}}};
    m_hasNews = true; // From before the start.
    bool isTriedAgain = false;
    while (!m_isStopped) {
        if (m_hasNews || isTriedAgain) {
            m_hasNews = false;
            isTriedAgain = !adoptAll();
        }
        const int wait = isTriedAgain ? kRetryMs : kIdleMs;
        if (::poll(events.data(), events.size(), wait) < 0 && errno != EINTR)
            return;
        if (events[1].revents)
            readEvents();
        if (events[2].revents & POLLPRI) {
            findTrashes();
            watchAll();
            m_onTrashesChanged();
        }
    }
}

} // namespace services::vaultd
