#include "vaultd/hook/trashindex.h"

#include "core/directorystream.h"
#include "core/posixfile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <tuple>

namespace services::vaultd {

namespace {

constexpr qint64 kMaxInfoBytes = 64 * 1024;
constexpr size_t kMaxItems = 200 * 1000;
const char kInfoSuffix[] = ".trashinfo";

bool isClean(const QByteArray &path)
{
    const QList<QByteArray> parts = path.mid(1).split('/');
    for (const QByteArray &part : parts) {
        if (part.isEmpty() || part == "." || part == ".." || part.contains('\0'))
            return false;
    }
    return path.startsWith('/') && path.size() < 4096;
}

/// The volume that a trash is for: "/mnt" for "/mnt/.Trash-1000" and "/mnt/.Trash/1000".
QByteArray topDirOf(const QByteArray &root)
{
    const QByteArray parent = core::parentPath(root);
    return parent.endsWith("/.Trash") ? core::parentPath(parent) : parent;
}

QByteArray joined(const QByteArray &dir, const QByteArray &name)
{
    return dir.endsWith('/') ? dir + name : dir + '/' + name;
}

} // namespace

bool parseTrashInfo(const QByteArray &text, const QByteArray &topDir, QByteArray *path)
{
    const QList<QByteArray> lines = text.split('\n');
    if (lines.first().trimmed() != "[Trash Info]")
        return false;
    for (const QByteArray &line : lines) {
        if (!line.startsWith("Path="))
            continue;
        const QByteArray value = QByteArray::fromPercentEncoding(line.mid(5).trimmed());
        *path = value.startsWith('/') ? value : joined(topDir, value);
        return isClean(*path);
    }
    return false;
}

bool TrashIndex::Key::operator<(const Key &other) const
{
    return std::tie(device, inode, bornAt) < std::tie(other.device, other.inode, other.bornAt);
}

TrashIndex::TrashIndex(const UserIdentity &user)
    : m_user(user)
{}

void TrashIndex::setRoots(const QList<QByteArray> &roots)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_roots = roots;
}

QList<QByteArray> TrashIndex::roots() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_roots;
}

bool TrashIndex::keyOf(const QByteArray &path, Key *key)
{
    struct statx status;
    if (::statx(AT_FDCWD, path.constData(), AT_SYMLINK_NOFOLLOW, STATX_INO | STATX_BTIME,
                &status) != 0)
        return false;
    key->device = (quint64(status.stx_dev_major) << 32) | status.stx_dev_minor;
    key->inode = status.stx_ino;
    key->bornAt = status.stx_mask & STATX_BTIME
                      ? qint64(status.stx_btime.tv_sec) * 1000000000 + status.stx_btime.tv_nsec
                      : 0;
    return true;
}

QByteArray TrashIndex::readOriginal(const QByteArray &root, const QByteArray &name) const
{
    QByteArray text;
    QByteArray path;
    const QByteArray info = root + "/info/" + name + kInfoSuffix;
    return core::readFile(info, kMaxInfoBytes, &text) == 0 &&
                   parseTrashInfo(text, topDirOf(root), &path)
               ? path
               : QByteArray();
}

void TrashIndex::learn(const QByteArray &root, const QByteArray &name)
{
    QString error;
    const ActAs user(m_user);
    Key key;
    if (!user.isActive(&error) || !keyOf(root + "/files/" + name, &key))
        return;
    const QByteArray original = readOriginal(root, name);
    if (original.isEmpty())
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_originals.size() < kMaxItems)
        m_originals[key] = original;
}

void TrashIndex::learnAll(const QByteArray &root)
{
    QList<QByteArray> names;
    {
        QString error;
        const ActAs user(m_user);
        if (!user.isActive(&error))
            return;
        const core::DirectoryStream stream =
            core::openDirectory((root + "/files").constData(), false);
        while (const dirent *entry = stream ? ::readdir(stream.get()) : nullptr) {
            const QByteArray name(entry->d_name);
            if (name != "." && name != "..")
                names.append(name);
        }
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_originals.size() + size_t(names.size()) > kMaxItems)
            m_originals.clear(); // Those that are still in a trash are learnt again.
    }
    for (const QByteArray &name : qAsConst(names))
        learn(root, name);
}

bool TrashIndex::find(const QByteArray &path, QByteArray *original) const
{
    original->clear();
    for (const QByteArray &root : roots()) {
        if (!path.startsWith(root + '/'))
            continue;
        // <root>/files/<item>/…, or another folder in place of "files".
        const int folderEnd = path.indexOf('/', root.size() + 1);
        if (folderEnd < 0)
            return true;
        const int itemEnd = path.indexOf('/', folderEnd + 1);
        const QByteArray item = itemEnd < 0 ? path : path.left(itemEnd);
        const QByteArray rest = itemEnd < 0 ? QByteArray() : path.mid(itemEnd);
        QString error;
        const ActAs user(m_user);
        Key key;
        if (!user.isActive(&error) || !keyOf(item, &key))
            return true;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            const auto found = m_originals.find(key);
            if (found != m_originals.end())
                *original = found->second + rest;
        }
        if (original->isEmpty() && path.mid(root.size(), folderEnd - root.size()) == "/files") {
            const QByteArray told = readOriginal(root, item.mid(folderEnd + 1));
            if (!told.isEmpty())
                *original = told + rest;
        }
        return true;
    }
    return false;
}

} // namespace services::vaultd
