#pragma once

#include "guard/guardmap.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <sys/types.h>
#include <vector>

namespace services::vaultd {

/// What one map file says; see guardprotocol.h. Paths are canonical.
struct MapContent
{
    struct Owner
    {
        uid_t uid = uid_t(-1);
        bool keepsReplaced = false;
        QList<QByteArray> extensions;
        QList<QByteArray> leftOutNames;
        QList<QByteArray> folders;
        QList<QByteArray> leftOutFolders;
    };
    struct Trash
    {
        quint64 device = 0;
        quint64 inode = 0; ///< 0: does not exist yet.
        QByteArray path;
    };
    struct Spool
    {
        quint64 device = 0;
        uid_t uid = uid_t(-1);
        QByteArray path;
    };

    quint32 uid = GUARD_ANY_USER; ///< Whose deletions are checked against it.
    std::vector<Owner> owners;
    std::vector<Trash> trashes;
    std::vector<Spool> spools;
};

/// The bytes of the map file. Fails for an extension that is too long, and for more than the
/// library takes.
[[nodiscard]] bool buildMap(const MapContent &content, quint32 generation, QByteArray *bytes,
                            QString *error);

/// The bytes as a map; they must be those of buildMap().
const GuardMapHeader *mapIn(const QByteArray &bytes);

/// Puts the file in place of the one that is there and marks that one as replaced, for programs
/// that have it mapped. `reader` may read it besides root; GUARD_ANY_USER: everyone.
[[nodiscard]] bool publishMap(const QByteArray &path, const QByteArray &bytes, quint32 reader,
                              QString *error);
/// Removes the file and marks it as replaced.
void retireMap(const QByteArray &path);

} // namespace services::vaultd
