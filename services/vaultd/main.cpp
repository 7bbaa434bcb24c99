#include "common/exitwithparent.h"
#include "common/servicemanager.h"
#include "common/terminationsignals.h"
#include "guard/guardprotocol.h"
#include "vaultd/daemon.h"
#include "vaultd/passwords.h"
#include "vaultd/protect.h"
#include "vaultd/rights/pamcheck.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

using namespace services::vaultd;

namespace {

void complain(const QString &error)
{
    std::fprintf(stderr, "morvane-vaultd: %s\n", qUtf8Printable(error));
}

/// Moves files into the vault, whether a service runs on it or not; prints an id each.
int protectFiles(const QString &vaultParent, const QStringList &paths)
{
    const VaultLayout layout(vaultParent);
    QString error = QStringLiteral("没有给出要保护的文件");
    if (paths.isEmpty() || !layout.prepare(&error)) {
        complain(error);
        return 1;
    }
    int failures = 0;
    for (const QString &path : paths) {
        VaultFile file;
        if (protectFile(layout, path, QDateTime::currentSecsSinceEpoch(), &file, &error)) {
            std::printf("%s\n", qPrintable(file.id));
            std::fflush(stdout);
        } else {
            complain(error);
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}

/// The password is the first line of the standard input.
int setPassword(const QString &passwordFile, const QString &user)
{
    QTextStream input(stdin);
    input.setCodec("UTF-8");
    QString error = QStringLiteral("没有给出密码文件（--password-file）");
    if (!passwordFile.isEmpty() && Passwords(passwordFile).set(user, input.readLine(), &error))
        return 0;
    complain(error);
    return 1;
}

int checkPassword(const QString &user)
{
    QString error;
    if (isRightPassword(user.toUtf8(), STDIN_FILENO, &error))
        return 0;
    complain(error);
    return 1;
}

int takeHookOut(const Protection::Options &options)
{
    QString error;
    if (removeHook(options, &error))
        return 0;
    complain(error);
    return 1;
}

int takeBrokenHookOut(const Protection::Options &options)
{
    QString error;
    bool wasBroken = false;
    const bool isDone = checkHook(options, &wasBroken, &error);
    if (wasBroken)
        complain(QStringLiteral("the hook is broken and was taken out of %1 %2")
                     .arg(options.preloadList, error));
    else if (!isDone)
        complain(error);
    return isDone ? 0 : 1;
}

int closePorts(const QString &stateDir)
{
    QString error;
    if (closeFirewall(firewallStateFile(stateDir), &error))
        return 0;
    complain(error);
    return 1;
}

/// What the command line says.
class Arguments
{
public:
    Arguments()
    {
        parser.setApplicationDescription(
            QStringLiteral("Keeps files in a vault for a time and gives them back."));
        parser.addHelpOption();
        parser.addOptions({system, vaultParent, state, passwordFile, socket, hookLibrary,
                           preloadList, hookFolder, exitWithParent, protect, password, checkedUser,
                           checkedHook, removedHook, closedFirewall});
        parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("Files to protect."),
                                     QStringLiteral("[file…]"));
    }

    bool isSystem() const { return parser.isSet(system); }
    Daemon::Options daemonOptions() const;
    Protection::Options hookOptions() const
    {
        return {entry(true), parser.value(preloadList), stateDir(true)};
    }

    QCommandLineParser parser;
    const QCommandLineOption system{
        QStringLiteral("system"),
        QStringLiteral("Serve every user of the machine, each with a vault in the home.")};
    const QCommandLineOption vaultParent{
        QStringLiteral("vault-parent"),
        QStringLiteral("Serve one vault for whoever may connect, in this folder."),
        QStringLiteral("folder")};
    const QCommandLineOption state{QStringLiteral("state"),
                                   QStringLiteral("Folder for the configuration and journals."),
                                   QStringLiteral("folder")};
    const QCommandLineOption passwordFile{
        QStringLiteral("password-file"),
        QStringLiteral("File of password hashes, in place of the system's accounts."),
        QStringLiteral("file")};
    const QCommandLineOption socket{QStringLiteral("socket"),
                                    QStringLiteral("Name of the local socket."),
                                    QStringLiteral("name")};
    const QCommandLineOption hookLibrary{
        QStringLiteral("hook-library"),
        QStringLiteral("The preloaded library, as the preload list names it."),
        QStringLiteral("path")};
    const QCommandLineOption preloadList{
        QStringLiteral("preload-list"), QStringLiteral("The system's list of preloaded libraries."),
        QStringLiteral("file"), QStringLiteral("/etc/ld.so.preload")};
    const QCommandLineOption hookFolder{QStringLiteral("run-dir"),
                                        QStringLiteral("Folder that the library looks in."),
                                        QStringLiteral("folder"), QStringLiteral(GUARD_RUN_DIR)};
    const QCommandLineOption exitWithParent{
        QStringLiteral("exit-with-parent"),
        QStringLiteral("End when the program that started this one ends.")};
    const QCommandLineOption protect{
        QStringLiteral("protect"),
        QStringLiteral("Move the files that follow into the vault, print their ids, and end.")};
    const QCommandLineOption password{
        QStringLiteral("set-password"),
        QStringLiteral("Read a password from the standard input, keep its hash, and end."),
        QStringLiteral("user")};
    const QCommandLineOption checkedUser{
        QStringLiteral("check-password"),
        QStringLiteral(
            "Check a password from the standard input by the system's modules, and end."),
        QStringLiteral("user")};
    const QCommandLineOption checkedHook{
        QStringLiteral("check-hook"),
        QStringLiteral("Take the library out of the preload list if programs fail with it.")};
    const QCommandLineOption removedHook{
        QStringLiteral("remove-hook"), QStringLiteral("Take the library out of the preload list.")};

    const QCommandLineOption closedFirewall{
        QStringLiteral("close-firewall"),
        QStringLiteral("Close the ports that a service has left open in the firewall.")};

private:
    QString valueOr(const QCommandLineOption &option, const QString &fallback) const
    {
        return parser.isSet(option) ? parser.value(option) : fallback;
    }
    QString stateDir(bool ofSystem) const
    {
        return valueOr(state, ofSystem ? QStringLiteral("/var/lib/morvane-vaultd")
                                       : QDir::homePath() +
                                             QStringLiteral("/.local/share/morvane-vaultd"));
    }
    QByteArray entry(bool ofSystem) const
    {
        return QFile::encodeName(valueOr(
            hookLibrary, ofSystem ? QStringLiteral("/usr/$LIB/libmorvane-guard.so") : QString()));
    }
};

Daemon::Options Arguments::daemonOptions() const
{
    const QString name = QStringLiteral("morvane-vault-v1");
    Daemon::Options options;
    options.vaultParent = isSystem() ? QString() : parser.value(vaultParent);
    options.stateDir = stateDir(isSystem());
    options.passwordFile = parser.value(passwordFile);
    options.socketName =
        valueOr(socket, isSystem() ? QStringLiteral("/run/morvane/") + name : name);
    options.program = QCoreApplication::applicationFilePath();
    options.hookEntry = entry(isSystem());
    options.preloadList = parser.value(preloadList);
    options.hookFolder = QFile::encodeName(parser.value(hookFolder));
    return options;
}

int serve(const Daemon::Options &options)
{
    Daemon daemon(options);
    QString error;
    if (services::quitOnTerminationSignals(&error) && daemon.start(&error)) {
        services::reportReady(QCoreApplication::instance());
        return QCoreApplication::exec();
    }
    complain(error);
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    const pid_t parent = ::getppid();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("morvane-vaultd"));

    Arguments arguments;
    QCommandLineParser &parser = arguments.parser;
    parser.process(app);
    if (parser.isSet(arguments.exitWithParent) && !services::exitWithParent(parent))
        return 1;
    if (parser.isSet(arguments.password))
        return setPassword(parser.value(arguments.passwordFile), parser.value(arguments.password));
    if (parser.isSet(arguments.checkedUser))
        return checkPassword(parser.value(arguments.checkedUser));
    if (parser.isSet(arguments.checkedHook))
        return takeBrokenHookOut(arguments.hookOptions());
    if (parser.isSet(arguments.removedHook))
        return takeHookOut(arguments.hookOptions());
    if (parser.isSet(arguments.closedFirewall))
        return closePorts(arguments.hookOptions().stateDir);
    const QString vaultParent = parser.value(arguments.vaultParent);
    if (vaultParent.isEmpty() && !arguments.isSystem()) {
        complain(QStringLiteral("没有给出保护区的上级目录（--vault-parent）"));
        return 1;
    }
    if (parser.isSet(arguments.protect))
        return protectFiles(vaultParent, parser.positionalArguments());
    return serve(arguments.daemonOptions());
}
