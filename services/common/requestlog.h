#pragma once

#include "common/servicehost.h"

/// The journal's account of who asked a service for what.
namespace services {

/// One line with the priority that the journal takes from it: a debug message for what went well,
/// a notice for what failed, with the first letters of its reason. Holds no parameters, which may
/// be passwords or names of files. The id and the method, which a client chooses, are cut to a
/// sensible length and printable characters. `elapsedMs`: from the arrival to the answer.
QByteArray requestLogLine(const AnsweredRequest &request, qint64 elapsedMs);

/// Writes such lines to the standard error output from now on, if that leads to the journal.
void logRequestsToJournal(ServiceHost *host);

} // namespace services
