#pragma once

#include "loopdisk.h"
#include "vaultd/vaultstore.h"

#include <QDir>
#include <QTest>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

/// A home of kUser on a disk of its own, with the vault that root keeps for the user there.
class KeepBench
{
public:
    explicit KeepBench(const QByteArray &type)
        : disk(tree, type, "disk")
    {
        // Other users have to get there.
        for (const QString &dir : {QDir::tempPath(), tree.path(), disk.mountPoint()})
            ::chmod(QFile::encodeName(dir).constData(), 0755);
        ::mkdir(home("").constData(), 0755);
        if (::chown(home("").constData(), kUser, kUser) != 0)
            qWarning("The home cannot be given to its user: %s", std::strerror(errno));
    }

    /// As a new process of the service would begin.
    bool open()
    {
        using namespace services::vaultd;
        close();
        QString error;
        layout = std::make_unique<VaultLayout>(QString::fromUtf8(home("")), kUser);
        keeper = std::make_unique<VaultKeeper>(*layout, kUser, tree.dir("state"));
        keeper->setRules({{}, {QStringLiteral(".git")}, 1024 * 1024});
        store = std::make_unique<VaultStore>(*layout, tree.path("state"), stop);
        store->setKeeper(keeper.get());
        const bool isOpen = layout->prepare(&error) && keeper->open(&error) && store->open(&error);
        if (!isOpen)
            qWarning("%s", qUtf8Printable(error));
        return isOpen;
    }
    void close()
    {
        store.reset();
        keeper.reset();
        layout.reset();
    }

    QByteArray home(const QByteArray &relative) const
    {
        return QFile::encodeName(disk.path(QStringLiteral("home"))) +
               (relative.isEmpty() ? QByteArray() : '/' + relative);
    }
    QByteArray vault(const QByteArray &relative) const
    {
        return home(".morvane_vault/" + relative);
    }

    QString keep(const QByteArray &path)
    {
        services::vaultd::Deletion deletion;
        const core::Descriptor file(::open(path.constData(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
        deletion.file = file.get();
        deletion.path = path;
        deletion.peer = kUser;
        QString id;
        QString error;
        if (keeper->keep(deletion, &id, &error))
            return id;
        qWarning("%s", qUtf8Printable(error));
        return QString();
    }
    /// Keeps the file and deletes it, as the hook and the program do together.
    QString remove(const QByteArray &path)
    {
        const QString id = keep(path);
        if (!id.isEmpty())
            keeper->settle(id, ::unlink(path.constData()) == 0);
        return id;
    }
    /// What the vault's thread does after a while.
    bool round()
    {
        services::vaultd::VaultChanges changes;
        const bool mustComeBack = store->recordKept(&changes);
        return store->seal() || mustComeBack;
    }
    QByteArray content(const QString &id) const { return QFile::encodeName(layout->content(id)); }

    TempTree tree;
    LoopDisk disk;
    std::atomic<bool> stop{false};
    std::unique_ptr<services::vaultd::VaultLayout> layout;
    std::unique_ptr<services::vaultd::VaultKeeper> keeper;
    std::unique_ptr<services::vaultd::VaultStore> store;
};

inline void fileSystems()
{
    QTest::addColumn<QByteArray>("type");
    for (const char *type : {"ext4", "xfs", "btrfs"})
        QTest::newRow(type) << QByteArray(type);
}

#define MORVANE_BENCH(bench)                                                                       \
    QFETCH(QByteArray, type);                                                                      \
    KeepBench bench(type);                                                                         \
    if (!bench.disk.isMounted())                                                                   \
        QSKIP("No rights to mount an image, or no tools to make one");                             \
    QVERIFY(bench.open())
