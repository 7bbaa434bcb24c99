#pragma once

#include "guard/guardprotocol.h"

#include <QByteArray>

#include <vector>

namespace guard_test {

/// Speaks to the service as a program could that does not use the library.
struct RawRequest
{
    GuardRequest message = {};
    int messageSize = int(sizeof(GuardRequest));
    std::vector<int> descriptors;

    /// A well-formed request for a deletion.
    static RawRequest deletion(const QByteArray &name, int file, int parent);
};

/// A connection to "<runDir>/<user>.sock"; -1 with errno if there is none to be had.
int connectTo(const QByteArray &runDir, const QByteArray &user);
/// Sends without waiting for an answer.
bool send(int socket, const RawRequest &request);
/// The verdict: GuardVerdict, or 0 if the service hangs up.
int answerOf(int socket);
/// All of it on a connection that is closed after that.
int ask(const QByteArray &runDir, const QByteArray &user, const RawRequest &request);

} // namespace guard_test
