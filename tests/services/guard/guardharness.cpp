#include "guardharness.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace guard_test {

services::vaultd::UserProtection protectionIn(const QByteArray &home)
{
    services::vaultd::UserProtection protection;
    protection.uid = ::geteuid();
    protection.gid = ::getegid();
    protection.home = home;
    protection.directories = {home + "/documents"};
    protection.extensions = {"doc", "txt", "tar.gz"};
    protection.isEnabled = true;
    protection.spoolDirs = {home + "/.local/share/spool"};
    protection.leftOutDirectories = {home + "/documents/cache"};
    return protection;
}

GuardHarness::GuardHarness()
    : m_root(QFile::encodeName(QDir(m_dir.path()).canonicalPath()))
{
    for (const QByteArray &dir : {home(), documents(), elsewhere()})
        ::mkdir(dir.constData(), 0700);
    m_keeper = std::make_unique<LinkKeeper>(vault());
    protection = protectionIn(home());
}

bool GuardHarness::start(QString *error)
{
    LinkKeeper *keeper = m_keeper.get();
    m_hook = std::make_unique<services::vaultd::HookService>(runDir(),
                                                             [keeper](uid_t) { return keeper; });
    return m_hook->start(error) && m_hook->openFor(protection, error);
}

bool GuardHarness::write(const QByteArray &path, const QByteArray &content) const
{
    const QString name = QFile::decodeName(path);
    QFile file(name);
    return QDir().mkpath(name.section(QLatin1Char('/'), 0, -2)) &&
           file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QProcessEnvironment GuardHarness::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LD_PRELOAD"),
                       QStringLiteral(MORVANE_GUARD_TEST " ") + preload);
    environment.insert(QStringLiteral("MORVANE_GUARD_RUN_DIR"), text(runDir()));
    environment.insert(QStringLiteral("MORVANE_GUARD_WAIT_MS"), QString::number(answerWaitMs));
    environment.insert(QStringLiteral("HOME"), text(home()));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), text(home() + "/.local/share"));
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    return environment;
}

int GuardHarness::run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessEnvironment(environment());
    process.setWorkingDirectory(text(documents()));
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool isDone = process.waitForFinished(60 * 1000);
    m_output = process.readAll();
    return isDone && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

QByteArray GuardHarness::spooled() const
{
    return QFile::encodeName(
        QDir(text(spool()))
            .entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot)
            .join(QLatin1Char(' ')));
}

bool GuardHarness::waitForKept(int count) const
{
    // Programs end before the service has heard of the last call.
    return QTest::qWaitFor(
        [this, count] {
            const QVector<KeptFile> files = m_keeper->files();
            for (const KeptFile &file : files) {
                if (!file.isSettled)
                    return false;
            }
            return files.size() == count;
        },
        10 * 1000);
}

bool exists(const QByteArray &path)
{
    struct stat status = {};
    return ::lstat(path.constData(), &status) == 0;
}

QString text(const QByteArray &path)
{
    return QFile::decodeName(path);
}

} // namespace guard_test
