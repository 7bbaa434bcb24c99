#pragma once

#include "core/constanttime.h"

#include <QByteArray>
#include <QString>

namespace services {
namespace vaultd {

/// A file of salted password hashes, one "user:hash" a line, for its owner only.
class Passwords
{
public:
    explicit Passwords(const QString &path)
        : m_path(path)
    {}

    /// Whether this is the user's password. Takes as long for an unknown user as for a wrong
    /// password. A file that cannot be read, or that others may write, knows nobody.
    bool check(const QString &user, const QString &password) const;
    /// Adds the user or gives them another password; replaces the file as a whole.
    [[nodiscard]] bool set(const QString &user, const QString &password, QString *error) const;

private:
    [[nodiscard]] bool read(QList<QByteArray> *lines, QString *error) const;

    QString m_path;
};

using core::equalInConstantTime;

} // namespace vaultd
} // namespace services
