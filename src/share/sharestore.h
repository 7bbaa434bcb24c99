#pragma once

#include "share/sharedefinition.h"

class FileShareDb;

/// Writes a share with its roots in one transaction: all of it or nothing. `replacesOld` first
/// takes out the record of the same id, with its roots and log. Null if all is well, otherwise the
/// log's message for the step that failed, with the database's text in `error`.
const char *storeShare(FileShareDb *db, const ShareSession &session,
                       const ShareDefinition &definition, bool replacesOld, QString *error);
