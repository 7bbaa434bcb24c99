// One deletion as the service sees it, in a process of its own: keeprunner HOME STATE FILE
// Ends with 0 once the file is kept, deleted and recorded, with 3 if it was not kept, and is not
// deleted then.

#include "keepbench.h"

#include <sys/syscall.h>

using namespace services::vaultd;

int main(int argc, char *argv[])
{
    if (argc != 4)
        return 2;
    std::atomic<bool> stop{false};
    const VaultLayout layout(QFile::decodeName(argv[1]), kUser);
    const QString state = QFile::decodeName(argv[2]);
    VaultKeeper keeper(layout, kUser, state);
    VaultStore store(layout, state, stop);
    store.setKeeper(&keeper);
    QString error;
    QString id;
    if (!layout.prepare(&error) || !keeper.open(&error) || !store.open(&error))
        return 2;
    Deletion deletion;
    const core::Descriptor file(::open(argv[3], O_PATH | O_NOFOLLOW | O_CLOEXEC));
    deletion.file = file.get();
    deletion.path = argv[3];
    if (!keeper.keep(deletion, &id, &error))
        return 3;
    // Past the faults: this is the other program's.
    keeper.settle(id, ::syscall(SYS_unlinkat, AT_FDCWD, argv[3], 0) == 0);
    VaultChanges changes;
    store.recordKept(&changes);
    store.seal();
    return 0;
}
