#include "share/sharestore.h"

#include "share/filesharedb.h"

namespace {

const char *writeShare(FileShareDb *db, const ShareSession &session,
                       const ShareDefinition &definition, bool replacesOld, QString *error)
{
    if (replacesOld &&
        (!db->removeRootsBySession(session.id, error) || !db->removeSession(session.id, error)))
        return "[FileShareController] remove old session failed:";
    if (!db->createSession(session, FileShareDb::hashPassword(definition.password), error))
        return replacesOld ? "[FileShareController] recreate session failed:"
                           : "[FileShareController] createSession failed:";
    const QList<ShareRoot> roots = shareRootsFor(session.id, definition.paths);
    for (const ShareRoot &root : roots) {
        if (!db->addRoot(root, error))
            return "[FileShareController] addRoot failed:";
    }
    return nullptr;
}

} // namespace

const char *storeShare(FileShareDb *db, const ShareSession &session,
                       const ShareDefinition &definition, bool replacesOld, QString *error)
{
    if (!db->beginTransaction(error))
        return "[FileShareController] beginTransaction failed:";
    const char *failure = writeShare(db, session, definition, replacesOld, error);
    if (!failure && !db->commitTransaction(error))
        failure = "[FileShareController] commitTransaction failed:";
    if (failure)
        db->rollback();
    return failure;
}
