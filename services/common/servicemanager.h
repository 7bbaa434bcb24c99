#pragma once

#include <QByteArray>

class QObject;

/// What a service says to and gets from the system's service manager, by its environment variables;
/// without them, nothing happens.
namespace services {

/// The listening socket that the manager has opened for this process, or -1. It is given out once:
/// the variables are removed, so that child processes do not take it for theirs.
int takeActivationSocket();

/// Sends one notification, such as "READY=1"; false if there is no manager or it did not take it.
bool notifyServiceManager(const QByteArray &state);

/// Reports that the service is ready. Where the manager watches over it, sends a sign of life at
/// half the agreed time from the event loop of this thread, until `parent` is destroyed: a service
/// whose event loop hangs is restarted.
void reportReady(QObject *parent);

} // namespace services
