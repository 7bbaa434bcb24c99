#pragma once

#include "share/fileshareservercontext.h"

#include <QtGlobal>

namespace share {

/// The whole life of one connection: reads one request, answers it, closes. Blocking, on a thread
/// of the pool. Takes the descriptor over.
void handleConnectionStatic(const ShareContextPtr &context, qintptr descriptor);

} // namespace share
