#include "vaultd/system/command.h"

#include <QFile>
#include <QProcess>

namespace services::vaultd {

namespace {
constexpr int kPatienceMs = 10000;
} // namespace

CommandResult runCommand(const QString &program, const QStringList &arguments,
                         const QByteArray &input)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    CommandResult result;
    result.isRun = process.waitForFinished(kPatienceMs);
    if (!result.isRun && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(kPatienceMs);
    }
    result.isRun = result.isRun && process.exitStatus() == QProcess::NormalExit;
    result.exitCode = result.isRun ? process.exitCode() : -1;
    result.output = process.readAll();
    return result;
}

bool hasSystemCallFilter()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return false;
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray &line : lines)
        if (line.startsWith("Seccomp:"))
            return line.mid(8).trimmed() != "0";
    return false;
}

} // namespace services::vaultd
