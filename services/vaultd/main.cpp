#include "common/exitwithparent.h"
#include "common/servicemanager.h"
#include "common/terminationsignals.h"
#include "vaultd/daemon.h"
#include "vaultd/passwords.h"
#include "vaultd/protect.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
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

} // namespace

int main(int argc, char *argv[])
{
    const pid_t parent = ::getppid();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("morvane-vaultd"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Keeps files in a vault for a time and gives them back."));
    parser.addHelpOption();
    const QCommandLineOption vaultParent(QStringLiteral("vault-parent"),
                                         QStringLiteral("Folder that the vault stands in."),
                                         QStringLiteral("folder"));
    const QCommandLineOption state(
        QStringLiteral("state"), QStringLiteral("Folder for the configuration and journals."),
        QStringLiteral("folder"),
        QDir::homePath() + QStringLiteral("/.local/share/morvane-vaultd"));
    const QCommandLineOption passwordFile(
        QStringLiteral("password-file"),
        QStringLiteral("File of password hashes; without one, nobody is let in."),
        QStringLiteral("file"));
    const QCommandLineOption socket(QStringLiteral("socket"),
                                    QStringLiteral("Name of the local socket."),
                                    QStringLiteral("name"), QStringLiteral("morvane-vault-v1"));
    const QCommandLineOption exitWithParent(
        QStringLiteral("exit-with-parent"),
        QStringLiteral("End when the program that started this one ends."));
    const QCommandLineOption protect(
        QStringLiteral("protect"),
        QStringLiteral("Move the files that follow into the vault, print their ids, and end."));
    const QCommandLineOption password(
        QStringLiteral("set-password"),
        QStringLiteral("Read a password from the standard input, keep its hash, and end."),
        QStringLiteral("user"));
    parser.addOptions(
        {vaultParent, state, passwordFile, socket, exitWithParent, protect, password});
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("Files to protect."),
                                 QStringLiteral("[file…]"));
    parser.process(app);
    if (parser.isSet(exitWithParent) && !services::exitWithParent(parent))
        return 1;
    if (parser.isSet(password))
        return setPassword(parser.value(passwordFile), parser.value(password));
    if (parser.value(vaultParent).isEmpty()) {
        complain(QStringLiteral("没有给出保护区的上级目录（--vault-parent）"));
        return 1;
    }
    if (parser.isSet(protect))
        return protectFiles(parser.value(vaultParent), parser.positionalArguments());

    Daemon::Options options;
    options.vaultParent = parser.value(vaultParent);
    options.stateDir = parser.value(state);
    options.passwordFile = parser.value(passwordFile);
    options.socketName = parser.value(socket);
    Daemon daemon(options);
    QString error;
    if (services::quitOnTerminationSignals(&error) && daemon.start(&error)) {
        services::reportReady(&app);
        return QCoreApplication::exec();
    }
    complain(error);
    return 1;
}
