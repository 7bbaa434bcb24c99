#pragma once

#include "vaultd/users/useridentity.h"

#include <QByteArray>
#include <QHash>
#include <QList>

#include <map>
#include <mutex>

namespace services::vaultd {

/// Reads the original path from the text of a .trashinfo file; relative ones are below `topDir`.
/// False for a text that is none, and for paths that are not clean.
[[nodiscard]] bool parseTrashInfo(const QByteArray &text, const QByteArray &topDir,
                                  QByteArray *path);

/// Where the items in one user's trashes come from, by inode: an item keeps it when the trash is
/// emptied by renaming first, while its name and its .trashinfo go. Thread-safe.
class TrashIndex
{
public:
    explicit TrashIndex(const UserIdentity &user);

    /// The trashes, such as "/home/x/.local/share/Trash". They need not exist.
    void setRoots(const QList<QByteArray> &roots);
    QList<QByteArray> roots() const;
    /// Remembers an item of `files` whose .trashinfo is there. Acts as the user.
    void learn(const QByteArray &root, const QByteArray &name);
    /// The same for all items; forgets those of which nothing is left.
    void learnAll(const QByteArray &root);

    const UserIdentity &user() const { return m_user; }
    /// Whether the path is below one of the trashes. *original: where it was before it or the
    /// folder that holds it went to the trash; empty if that is not known.
    [[nodiscard]] bool find(const QByteArray &path, QByteArray *original) const;

private:
    /// An inode number is given again; together with the time of birth it is not.
    struct Key
    {
        quint64 device;
        quint64 inode;
        qint64 bornAt;

        bool operator<(const Key &other) const;
    };

    [[nodiscard]] static bool keyOf(const QByteArray &path, Key *key);
    QByteArray readOriginal(const QByteArray &root, const QByteArray &name) const;

    UserIdentity m_user;
    mutable std::mutex m_mutex;
    QList<QByteArray> m_roots;
    std::map<Key, QByteArray> m_originals;
};

} // namespace services::vaultd
