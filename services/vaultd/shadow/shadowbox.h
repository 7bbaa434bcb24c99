#pragma once

#include "vaultd/keep/vaultkeeper.h"

#include <QHash>
#include <QVector>

namespace services::vaultd {

/// The second names or clones of protected files, in `.morvane_vault/.shadow/`, by folder and name.
/// Those whose file is deleted become records of the vault, unless the keeper got the file before.
/// Not thread-safe.
class ShadowBox
{
public:
    /// More files than this are not shadowed.
    static constexpr int kMaxShadows = 200000;

    ShadowBox(const VaultLayout &layout, uid_t owner, VaultKeeper &keeper);

    /// Makes the folder, without what an earlier run has left in it. False if the file system has
    /// no clones and hard links are not wanted, or not possible.
    [[nodiscard]] bool open(bool mayLink, QString *error);

    /// Takes the present state of the file `name` in the open folder `dir`, whose key is `folder`.
    /// Nothing is done for what is no regular file of the user's, or known in this state already.
    void take(int dir, const QByteArray &folder, const QByteArray &name);
    /// The file was deleted under this path: to be recorded after a moment.
    void remove(const QByteArray &folder, const QByteArray &name, const QByteArray &path);
    /// The file has another name now, or one that is not protected.
    void forget(const QByteArray &folder, const QByteArray &name);
    /// Makes records of what was deleted before `nowMs` and not reported by the hook. Returns the
    /// milliseconds until there is more to do; -1: nothing waits.
    int recordDeleted(qint64 nowMs, bool *areRecorded);

    // For a new walk: what it does not see any more was deleted meanwhile.
    void beginWalk() { ++m_walk; }
    QVector<QPair<QByteArray, QByteArray>> unseen() const;

private:
    struct Shadow
    {
        QByteArray file; ///< Its name in the folder of shadows.
        struct stat info = {};
        QByteArray accessList;
        int walk = 0;
    };
    using Key = QPair<QByteArray, QByteArray>; // folder, name
    struct Deleted
    {
        Shadow shadow;
        QByteArray path;
        qint64 dueMs;
    };

    void drop(const Shadow &shadow);
    bool record(const Deleted &deleted);

    VaultLayout m_layout;
    uid_t m_owner;
    VaultKeeper &m_keeper;
    core::Descriptor m_dir{-1};
    bool m_mayLink = false;
    quint64 m_next = 0;
    int m_walk = 0;
    QHash<Key, Shadow> m_shadows;
    QVector<Deleted> m_deleted; ///< In the order of their time.
};

} // namespace services::vaultd
