#pragma once

#include "vaultd/rights/authenticator.h"

class QObject;

namespace services::vaultd {

/// Checks passwords by the system's authentication modules. They are foreign code that may wait,
/// so they run in a process of their own: `program` `--check-password USER`. What takes too long
/// is ended and counts as wrong.
PasswordCheck pamCheck(const QString &program, QObject *owner);

/// What that process does: reads the password from the standard input to its end. True if the
/// modules of the service "morvane-vault" let the user in and the account is valid.
[[nodiscard]] bool isRightPassword(const QByteArray &user, int passwordInput, QString *error);

} // namespace services::vaultd
