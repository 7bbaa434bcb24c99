// What programs of users hand to the vault service and its hook: the mapped file of what is
// protected, notes of a trash, lines of the log, messages to the service's socket. The first byte
// of the input chooses the reader.

#include "readers.h"
#include "vaultd/failure.h"
#include "vaultd/hook/deletionserver.h"
#include "vaultd/hook/protectionmap.h"
#include "vaultd/keep/keeper.h"
#include "vaultd/keep/keeplog.h"
#include "vaultd/vaultconfig.h"

#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

using namespace services::vaultd;

namespace {

void check(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

/// A map that is valid is read anywhere without leaving it.
void readMap(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return;
    // A buffer of exactly this size, so that one byte beyond it shows.
    const std::unique_ptr<char, decltype(&std::free)> copy(
        static_cast<char *>(std::malloc(size_t(bytes.size()))), &std::free);
    char *const data = copy.get();
    std::memcpy(data, bytes.constData(), size_t(bytes.size()));
    if (!guardMapIsValid(data, size_t(bytes.size())))
        return;
    const auto *map = reinterpret_cast<const GuardMapHeader *>(data);
    for (const QByteArray &path :
         {QByteArray("/home/u/documents/x/.git/a.tar.gz"), QByteArray("/"), QByteArray("/a"),
          QByteArray("/home/u/.local/share/Trash/files/x"), bytes.right(64)}) {
        const auto length = size_t(path.size());
        guardHasExtension(map, map->extensions, path.constData(), length);
        guardIsBelowTrash(map, path.constData(), length);
        guardConcernsFolder(map, path.constData(), length);
        for (const GuardKind kind : {GuardDeletion, GuardReplacement}) {
            const int owner = guardOwnerOf(map, path.constData(), length, kind, 1000);
            check(owner < int(map->owners.count));
        }
    }
    guardIsTrashFolder(map, 1, 2);
    guardSpoolFor(map, 1, 1000);
}

void readTrashNote(const QByteArray &bytes)
{
    QByteArray path;
    if (parseTrashInfo(bytes, "/mnt", &path))
        check(path.startsWith('/') && !path.contains("/../") && !path.contains('\0'));
}

void readLog(const QByteArray &bytes)
{
    static const QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("kept.log")));
    check(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
          file.write(bytes) == bytes.size());
    file.close();
    const QVector<VaultFile> files = KeepLog(dir.path()).read();
    for (const VaultFile &kept : files)
        check(!kept.id.isEmpty() && !kept.id.contains(QLatin1Char('/')));
    VaultConfig config;
    QString error;
    if (!parseConfig(QJsonDocument::fromJson(bytes).object(), &config, &error))
        check(!error.isEmpty());
}

/// Takes nothing; what it is asked for must be the file that is there.
class WatchingKeeper : public Keeper
{
public:
    explicit WatchingKeeper(const QByteArray &path)
        : m_path(path)
    {}
    bool keep(const Deletion &deletion, QString *, QString *error) override
    {
        check(deletion.path == m_path);
        return fail(error, QStringLiteral("not taken"));
    }
    void settle(const QString &, bool) override {}
    bool holds(const struct stat &, const QByteArray &) override { return false; }

private:
    QByteArray m_path;
};

/// A service with one protected folder that holds one file.
class Service
{
public:
    Service()
        : m_root(QFile::encodeName(m_dir.path()))
        , m_keeper(folder() + "/a.txt")
        , m_server({m_protections, [this](uid_t) { return &m_keeper; }, m_inHand})
    {
        check(::mkdir(folder().constData(), 0700) == 0);
        QFile file(QFile::decodeName(folder() + "/a.txt"));
        check(file.open(QIODevice::WriteOnly));
        MapContent content;
        MapContent::Owner owner;
        owner.uid = ::geteuid();
        owner.extensions = {"txt"};
        owner.folders = {folder()};
        content.owners.push_back(owner);
        auto snapshot = std::make_shared<ProtectionSnapshot>();
        QString error;
        check(buildMap(content, 1, &snapshot->map, &error));
        snapshot->owners.insert(owner.uid, UserIdentity::ofProcess());
        m_protections.set(snapshot);
        check(m_server.start(socket(), owner.uid, &error));
        m_descriptors = {::open((folder() + "/a.txt").constData(), O_PATH | O_CLOEXEC),
                         ::open(folder().constData(), O_PATH | O_DIRECTORY | O_CLOEXEC),
                         ::open("/dev/null", O_RDONLY | O_CLOEXEC)};
    }

    /// Sends the bytes with some descriptors, and waits for the answer or the end.
    void send(const QByteArray &bytes, int count)
    {
        const core::Descriptor connection(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, socket().constData(), size_t(socket().size()));
        check(::connect(connection.get(), reinterpret_cast<const sockaddr *>(&address),
                        sizeof address) == 0);
        char control[CMSG_SPACE(3 * sizeof(int))] = {};
        iovec part = {const_cast<char *>(bytes.constData()), size_t(bytes.size())};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (count > 0) {
            message.msg_control = control;
            message.msg_controllen = CMSG_SPACE(size_t(count) * sizeof(int));
            cmsghdr *header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(size_t(count) * sizeof(int));
            std::memcpy(CMSG_DATA(header), m_descriptors.data(), size_t(count) * sizeof(int));
        }
        if (::sendmsg(connection.get(), &message, MSG_NOSIGNAL) != ssize_t(bytes.size()))
            return;
        GuardAnswer answer;
        pollfd wanted = {connection.get(), POLLIN, 0};
        check(::poll(&wanted, 1, 10 * 1000) == 1);
        if (::recv(connection.get(), &answer, sizeof answer, 0) == ssize_t(sizeof answer))
            check(answer.verdict == GuardNotWanted || answer.verdict == GuardFailed);
    }

private:
    QByteArray folder() const { return m_root + "/documents"; }
    QByteArray socket() const { return m_root + "/s"; }

    QTemporaryDir m_dir;
    QByteArray m_root;
    WatchingKeeper m_keeper;
    Protections m_protections;
    FilesInHand m_inHand;
    DeletionServer m_server;
    std::array<int, 3> m_descriptors{};
};

/// The next byte is the number of descriptors, then whether the rest stands for the whole message
/// or for changes in a good one.
void sendMessage(const QByteArray &bytes)
{
    static Service service;
    if (bytes.size() < 3)
        return;
    QByteArray message = bytes.mid(2);
    if (bytes[1] & 1) {
        GuardRequest request = {};
        request.magic = GUARD_REQUEST_MAGIC;
        request.version = GUARD_VERSION;
        request.kind = GuardDeletion;
        request.nameLength = 5;
        std::memcpy(request.name, "a.txt", 5);
        message = QByteArray(reinterpret_cast<const char *>(&request), sizeof request);
        for (int i = 2; i + 1 < bytes.size(); i += 2)
            message[uchar(bytes[i]) % 24] = bytes[i + 1];
    }
    service.send(message, uchar(bytes[0]) % 4);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uchar *input, size_t length)
{
    return fuzz::readByOneOf({readMap, readTrashNote, readLog, sendMessage}, input, length);
}
