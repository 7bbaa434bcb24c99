#include "vaultd/hook/hookservice.h"

#include "vaultd/failure.h"
#include "vaultd/hook/deletionserver.h"
#include "vaultd/hook/upkeep.h"

#include <QDebug>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr uid_t kNobody = 65534;

/// A path as the kernel reports it; what the user cannot reach is not protected. A folder that does
/// not exist yet counts by its text.
QList<QByteArray> canonicalFolders(const UserIdentity &user, const QList<QByteArray> &folders)
{
    QList<QByteArray> result;
    QString error;
    const ActAs rights(user);
    if (!rights.isActive(&error))
        return result;
    for (const QByteArray &folder : folders) {
        const core::Descriptor dir(::open(folder.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        QByteArray path;
        if (dir.isOpen())
            path = pathOfDescriptor(dir.get());
        else if (errno == ENOENT)
            path = QFile::encodeName(QDir::cleanPath(QFile::decodeName(folder)));
        if (path.startsWith('/') && !result.contains(path))
            result.append(path);
    }
    return result;
}

/// Whether anyone but its owner can reach the folder at all; spares asking for each user.
bool isPrivate(const QByteArray &folder)
{
    struct stat status;
    for (QByteArray path = folder; path.size() > 1; path = path.left(path.lastIndexOf('/'))) {
        if (::lstat(path.constData(), &status) != 0 || !(status.st_mode & (S_IXGRP | S_IXOTH)))
            return true;
    }
    return false;
}

/// Whether the user can look into the folder, so that its name is no secret.
bool canSee(const UserIdentity &user, const QByteArray &folder)
{
    QString error;
    const ActAs rights(user);
    const core::Descriptor dir(
        rights.isActive(&error) ? ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW |
                                                                 O_CLOEXEC | O_NONBLOCK)
                                : -1);
    return dir.isOpen();
}

/// The service holds three descriptors for each deletion that is under way.
void raiseDescriptorLimit()
{
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

UserIdentity identityOf(const UserProtection &protection)
{
    UserIdentity user;
    QString error;
    if (protection.uid == ::geteuid())
        user = UserIdentity::ofProcess();
    else if (!UserIdentity::find(protection.uid, &user, &error))
        user.groups = {protection.gid};
    user.uid = protection.uid;
    user.gid = protection.gid;
    return user;
}

} // namespace

class HookService::Private
{
public:
    struct User
    {
        UserIdentity identity;
        MapContent::Owner protection; ///< Without folders while it is off.
        std::vector<MapContent::Spool> spools;
        std::unique_ptr<Upkeep> upkeep;
    };

    Private(const QByteArray &dir, const KeeperOf &keepers)
        : runDir(dir)
        , keeperOf(keepers)
    {}

    bool prepareRunDir(QString *error) const;
    bool listenFor(quint32 uid, QString *error);
    bool publishAll(QString *error);
    void closeOthers();
    bool publish(const MapContent &content, QString *error);
    void share();
    MapContent contentFor(quint32 viewer) const;
    void addTrashes(const User &user, MapContent *content) const;
    QByteArray fileOf(quint32 uid, const char *suffix) const;
    QList<quint32> mappedUids() const;

    QByteArray runDir;
    KeeperOf keeperOf;
    Protections protections;
    FilesInHand inHand;
    std::mutex mutex; ///< Of all that follows.
    std::map<uid_t, User> users;
    std::map<quint32, std::unique_ptr<DeletionServer>> servers;
    std::map<quint32, QByteArray> published; ///< By reader, to spare writing the same again.
    quint32 generation = 0;
    bool isOpening = false; ///< Nothing is published yet.
};

bool HookService::Private::prepareRunDir(QString *error) const
{
    const QString subject = QStringLiteral("无法使用 %1").arg(QFile::decodeName(runDir));
    struct stat status;
    if ((::mkdir(runDir.constData(), 0755) != 0 && errno != EEXIST) ||
        ::lstat(runDir.constData(), &status) != 0)
        return fail(error, subject, errno);
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid() ||
        (status.st_mode & (S_IWGRP | S_IWOTH)))
        return fail(error, subject, EPERM);
    return ::chmod(runDir.constData(), 0755) == 0 || fail(error, subject, errno);
}

QByteArray HookService::Private::fileOf(quint32 uid, const char *suffix) const
{
    return runDir + '/' + (uid == GUARD_ANY_USER ? "any" : QByteArray::number(uid)) + suffix;
}

QList<quint32> HookService::Private::mappedUids() const
{
    QList<quint32> uids;
    const QStringList names =
        QDir(QFile::decodeName(runDir)).entryList({QStringLiteral("*.map")}, QDir::Files);
    for (const QString &name : names) {
        bool isNumber = false;
        const quint32 uid = name.section(QLatin1Char('.'), 0, 0).toUInt(&isNumber);
        if (isNumber || name == QLatin1String("any.map"))
            uids.append(isNumber ? uid : GUARD_ANY_USER);
    }
    return uids;
}

bool HookService::Private::listenFor(quint32 uid, QString *error)
{
    std::unique_ptr<DeletionServer> &server = servers[uid];
    if (server)
        return true;
    auto started =
        std::make_unique<DeletionServer>(DeletionServer::Context{protections, keeperOf, inHand});
    if (!started->start(fileOf(uid, ".sock"), uid, error))
        return false;
    server = std::move(started);
    return true;
}

void HookService::Private::addTrashes(const User &user, MapContent *content) const
{
    for (const QByteArray &root : user.upkeep->trashes()->roots()) {
        for (const char *part : {"", "/files", "/expunged"}) {
            struct stat status = {};
            QString error;
            const ActAs rights(user.identity);
            const QByteArray path = root + part;
            const bool isThere = rights.isActive(&error) && ::lstat(path.constData(), &status) == 0;
            if (isThere)
                content->trashes.push_back({status.st_dev, status.st_ino, path});
            else if (part[0] == '\0')
                content->trashes.push_back({0, 0, path});
        }
    }
}

/// What the viewer's programs check deletions against: the viewer's own folders, and those of
/// others that the viewer can see anyway. Root sees all.
MapContent HookService::Private::contentFor(quint32 viewer) const
{
    MapContent content;
    content.uid = viewer;
    UserIdentity identity;
    identity.uid = kNobody;
    identity.gid = kNobody;
    const auto known = users.find(viewer);
    if (viewer != GUARD_ANY_USER && known != users.end())
        identity = known->second.identity;
    for (const auto &entry : users) {
        const User &user = entry.second;
        const bool isOwn = viewer == entry.first || viewer == 0;
        MapContent::Owner owner = user.protection;
        if (owner.folders.isEmpty())
            continue;
        if (isOwn) {
            content.spools.insert(content.spools.end(), user.spools.begin(), user.spools.end());
            addTrashes(user, &content);
        } else {
            const auto isHidden = [&identity](const QByteArray &folder) {
                return isPrivate(folder) || !canSee(identity, folder);
            };
            for (QList<QByteArray> *folders : {&owner.folders, &owner.leftOutFolders})
                folders->erase(std::remove_if(folders->begin(), folders->end(), isHidden),
                               folders->end());
        }
        if (!owner.folders.isEmpty())
            content.owners.push_back(owner);
    }
    return content;
}

bool HookService::Private::publish(const MapContent &content, QString *error)
{
    QByteArray bytes;
    QByteArray &former = published[content.uid];
    if (!buildMap(content, 0, &bytes, error))
        return false;
    if (bytes == former)
        return true;
    QByteArray numbered;
    if (!buildMap(content, ++generation, &numbered, error) ||
        !publishMap(fileOf(content.uid, ".map"), numbered, content.uid, error))
        return false;
    former = bytes;
    return true;
}

/// The service's own view, before any program can ask.
void HookService::Private::share()
{
    auto snapshot = std::make_shared<ProtectionSnapshot>();
    QString error;
    if (!buildMap(contentFor(0), 0, &snapshot->map, &error))
        return;
    for (const auto &entry : users) {
        snapshot->owners.insert(entry.first, entry.second.identity);
        snapshot->trashes.append(entry.second.upkeep->trashes());
    }
    protections.set(snapshot);
}

bool HookService::Private::publishAll(QString *error)
{
    if (isOpening)
        return true;
    share();
    QList<quint32> viewers = {0, GUARD_ANY_USER};
    for (const auto &entry : users) {
        if (entry.first != 0)
            viewers.append(entry.first);
    }
    for (const quint32 viewer : viewers) {
        // Nobody but root can listen for others.
        if (::geteuid() != 0 && viewer != GUARD_ANY_USER && viewer != ::geteuid())
            continue;
        if (!listenFor(viewer, error) || !publish(contentFor(viewer), error))
            return false;
    }
    return true;
}

void HookService::Private::closeOthers()
{
    for (const quint32 uid : mappedUids()) {
        if (published.count(uid) > 0)
            continue;
        retireMap(fileOf(uid, ".map"));
        ::unlink(fileOf(uid, ".sock").constData());
    }
}

HookService::HookService(const QByteArray &runDir, const KeeperOf &keeperOf)
    : d(std::make_unique<Private>(runDir, keeperOf))
{}

HookService::~HookService()
{
    // Their threads may be waiting for the mutex.
    std::map<uid_t, Private::User> users;
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        users.swap(d->users);
    }
    for (auto &entry : users)
        entry.second.upkeep.reset();
    d->servers.clear();
}

bool HookService::start(QString *error)
{
    raiseDescriptorLimit();
    return d->prepareRunDir(error);
}

bool HookService::openFor(const UserProtection &protection, QString *error)
{
    Private::User user;
    user.identity = identityOf(protection);
    user.protection.uid = protection.uid;
    user.protection.keepsReplaced = protection.keepsReplaced;
    user.protection.extensions = protection.extensions;
    user.protection.leftOutNames = protection.leftOutNames;
    if (protection.isEnabled)
        user.protection.folders = canonicalFolders(user.identity, protection.directories);
    QList<QByteArray> leftOut = protection.leftOutDirectories;
    QList<QByteArray> spoolDirs;
    for (const QByteArray &dir : protection.spoolDirs) {
        quint64 device = 0;
        QString reason;
        if (!Spool::prepare(user.identity, dir, &device, &reason)) {
            qWarning("morvane-vaultd: %s", qUtf8Printable(reason));
            continue;
        }
        user.spools.push_back({device, protection.uid, dir});
        spoolDirs.append(dir);
        leftOut.append(dir);
    }
    user.protection.leftOutFolders = canonicalFolders(user.identity, leftOut);
    const auto onTrashesChanged = [this] {
        QString reason;
        const std::lock_guard<std::mutex> lock(d->mutex);
        if (!d->publishAll(&reason))
            qWarning("morvane-vaultd: %s", qUtf8Printable(reason));
    };
    user.upkeep = std::make_unique<Upkeep>(user.identity, protection.home, spoolDirs, d->inHand,
                                           d->keeperOf, onTrashesChanged);

    // What the trash knows is for the new one to learn before the former one goes.
    Upkeep *upkeep = user.upkeep.get();
    std::unique_ptr<Upkeep> former;
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        Private::User &place = d->users[protection.uid];
        former = std::move(place.upkeep);
        place = std::move(user);
    }
    former.reset();
    if (!upkeep->start(error))
        return false;
    const std::lock_guard<std::mutex> lock(d->mutex);
    return d->publishAll(error);
}

void HookService::close(uid_t uid)
{
    Private::User closed;
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        const auto found = d->users.find(uid);
        if (found == d->users.end())
            return;
        closed = std::move(found->second);
        d->users.erase(found);
        QString error;
        if (!d->publishAll(&error))
            qWarning("morvane-vaultd: %s", qUtf8Printable(error));
        if (uid != 0) {
            retireMap(d->fileOf(uid, ".map"));
            d->published.erase(uid);
        }
    }
    closed.upkeep.reset();
    std::unique_ptr<DeletionServer> server;
    if (uid != 0) {
        const std::lock_guard<std::mutex> lock(d->mutex);
        server = std::move(d->servers[uid]);
        d->servers.erase(uid);
        ::unlink(d->fileOf(uid, ".sock").constData());
    }
}

void HookService::beginOpening()
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->isOpening = true;
}

bool HookService::finishOpening(QString *error)
{
    const std::lock_guard<std::mutex> lock(d->mutex);
    d->isOpening = false;
    // Maps for those whom nobody protects are not made anew.
    const bool isPublished = d->users.empty() || d->publishAll(error);
    d->closeOthers();
    return isPublished;
}

void HookService::withdraw()
{
    std::map<uid_t, Private::User> users;
    std::map<quint32, std::unique_ptr<DeletionServer>> servers;
    {
        const std::lock_guard<std::mutex> lock(d->mutex);
        users.swap(d->users);
        servers.swap(d->servers);
        d->published.clear();
        for (const quint32 uid : d->mappedUids())
            retireMap(d->fileOf(uid, ".map"));
        for (const auto &entry : servers)
            ::unlink(d->fileOf(entry.first, ".sock").constData());
    }
    for (auto &entry : users)
        entry.second.upkeep.reset();
}

} // namespace services::vaultd
