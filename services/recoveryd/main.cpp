#include "common/exitwithparent.h"
#include "common/servicemanager.h"
#include "common/terminationsignals.h"
#include "recoveryd/daemon.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>

#include <cstdio>
#include <unistd.h>

int main(int argc, char *argv[])
{
    const pid_t parent = ::getppid();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("morvane-recoveryd"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Finds and recovers deleted files on disks and disk images, which it only reads."));
    parser.addHelpOption();
    const QCommandLineOption image(
        QStringLiteral("image"), QStringLiteral("A disk image to offer; may be given repeatedly."),
        QStringLiteral("file"));
    const QCommandLineOption devices(
        QStringLiteral("devices"),
        QStringLiteral("Offers the disks of this machine; needs the rights of root."));
    const QCommandLineOption state(
        QStringLiteral("state"), QStringLiteral("Folder for scan sessions and snapshots."),
        QStringLiteral("folder"),
        QDir::homePath() + QStringLiteral("/.local/share/morvane-recoveryd"));
    const QCommandLineOption socket(QStringLiteral("socket"),
                                    QStringLiteral("Name of the local socket."),
                                    QStringLiteral("name"), QStringLiteral("morvane-service-v1"));
    const QCommandLineOption target(
        QStringLiteral("target"),
        QStringLiteral("Where the installed system may be mounted; its vaults are offered, too."),
        QStringLiteral("folder"), QStringLiteral("/live_target"));
    const QCommandLineOption exitWithParent(
        QStringLiteral("exit-with-parent"),
        QStringLiteral("End when the program that started this one ends."));
    const QCommandLineOption askAdministrator(
        QStringLiteral("ask-administrator"),
        QStringLiteral("Lets every user connect, with the leave of an administrator."));
    const QCommandLineOption freeGroup(
        QStringLiteral("free-group"),
        QStringLiteral("With --ask-administrator: members of this group need no leave."),
        QStringLiteral("group"));
    parser.addOptions(
        {image, devices, state, socket, target, askAdministrator, freeGroup, exitWithParent});
    parser.process(app);
    if (parser.isSet(exitWithParent) && !services::exitWithParent(parent))
        return 1;

    services::recoveryd::Daemon::Options options;
    options.images = parser.values(image);
    options.withBlockDevices = parser.isSet(devices);
    options.stateDir = parser.value(state);
    options.socketName = parser.value(socket);
    options.mountedDir = QDir::cleanPath(parser.value(target));
    options.asksAdministrator = parser.isSet(askAdministrator);
    options.freeGroup = parser.value(freeGroup);
    services::recoveryd::Daemon daemon(options);
    QString error;
    if (options.images.isEmpty() && !options.withBlockDevices)
        error = QStringLiteral("没有给出磁盘镜像（--image）或磁盘（--devices）");
    else if (options.withBlockDevices && ::geteuid() != 0)
        error = QStringLiteral("读取磁盘（--devices）需要 root 权限");
    else if (services::quitOnTerminationSignals(&error) && daemon.start(&error)) {
        services::reportReady(&app);
        return QCoreApplication::exec();
    }
    std::fprintf(stderr, "morvane-recoveryd: %s\n", qUtf8Printable(error));
    return 1;
}
