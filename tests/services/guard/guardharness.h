#pragma once

#include "linkkeeper.h"
#include "vaultd/hook/hookservice.h"

#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

namespace guard_test {

/// What the tests protect in a home: "documents" in it, for the user of this process.
services::vaultd::UserProtection protectionIn(const QByteArray &home);

/// A home with a protected folder, the service's side of the hook in this process, and programs
/// that run with the library. Nothing of the machine's own is touched.
class GuardHarness
{
public:
    GuardHarness();

    [[nodiscard]] bool start(QString *error);
    /// The service is gone; what programs delete goes to the spool.
    void stop() { m_hook.reset(); }

    QByteArray vault() const { return m_root + "/vault"; }
    QByteArray home() const { return m_root + "/home"; }
    QByteArray documents() const { return home() + "/documents"; } ///< Protected.
    QByteArray elsewhere() const { return home() + "/elsewhere"; } ///< Not protected.
    QByteArray spool() const { return home() + "/.local/share/spool"; }
    QByteArray runDir() const { return m_root + "/run"; }
    QByteArray trash() const { return home() + "/.local/share/Trash"; }
    LinkKeeper &keeper() { return *m_keeper; }
    services::vaultd::HookService &hook() { return *m_hook; }
    /// As start() uses it; changes count from the next openFor() on.
    services::vaultd::UserProtection protection;
    /// So long programs wait for the service. Only tests of a silent one need it short.
    int answerWaitMs = 60 * 1000;
    QString preload; ///< Libraries behind the one that is tested.

    /// Makes the file and its folders.
    [[nodiscard]] bool write(const QByteArray &path, const QByteArray &content) const;
    /// Runs it in `documents()`; its exit code, or -1. Output that it should not make is kept.
    int run(const QString &program, const QStringList &arguments);
    QByteArray output() const { return m_output; }
    QProcessEnvironment environment() const;
    QByteArray spooled() const; ///< Names in the spool, separated by blanks.

    /// Waits until the service has settled `count` files, and no more are kept.
    [[nodiscard]] bool waitForKept(int count) const;

private:
    QTemporaryDir m_dir;
    QByteArray m_root;
    std::unique_ptr<LinkKeeper> m_keeper;
    std::unique_ptr<services::vaultd::HookService> m_hook;
    QByteArray m_output;
};

/// Whether a name is there, without following it.
bool exists(const QByteArray &path);
QString text(const QByteArray &path);

} // namespace guard_test
