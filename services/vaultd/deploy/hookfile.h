#pragma once

#include <QByteArray>
#include <QString>

namespace services::vaultd {

/// The file that an entry of the preload list means to programs like this one: "$LIB" is the
/// folder that the C library was loaded from.
QString libraryOf(const QByteArray &entry);

/// Whether the file can be what is loaded into every program: a library for this machine which
/// nobody but root (or this process's user) may replace or write. What it does is proven by
/// running it.
[[nodiscard]] bool checkLibrary(const QString &path, QString *error);

/// Where 32-bit programs can run and no library for them lies where they look for the entry, puts
/// an empty one there: each of them would print an error at its start.
[[nodiscard]] bool provideFor32Bit(const QByteArray &entry, QString *error);
/// Takes that one away.
void removeFor32Bit(const QByteArray &entry);

} // namespace services::vaultd
