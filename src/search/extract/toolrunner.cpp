#include "search/extract/toolrunner.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTextCodec>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace search {

namespace {

constexpr int pollMs = 50;
constexpr int utf8Mib = 106;

/// A child in a session of its own: the whole group can be killed, and no tool can ask a question
/// on our terminal, as unzip does for a password.
class ToolProcess : public QProcess
{
protected:
    void setupChildProcess() override
    {
        ::setsid();
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
};

void killTool(QProcess &process, int waitMs)
{
    const auto group = static_cast<pid_t>(process.processId());
    if (group > 0)
        ::kill(-group, SIGKILL);
    process.kill();
    process.waitForFinished(waitMs);
}

/// Moves what has arrived into `output`. Beyond the cap bytes are thrown away but still read, so
/// that exit code and time limit decide over a long output exactly as over a short one, while the
/// memory stays bounded.
void takeOutput(QProcess &process, int maxBytes, ToolOutput *output)
{
    const QByteArray arrived = process.readAllStandardOutput();
    const int room = maxBytes - output->bytes.size();
    output->bytes.append(arrived.constData(), qMin(room, arrived.size()));
    if (arrived.size() > room)
        output->cut = true;
}

bool waitForStart(QProcess &process, int startMs, const std::atomic_bool *cancel)
{
    QElapsedTimer clock;
    clock.start();
    while (process.state() == QProcess::Starting) {
        const qint64 left = startMs - clock.elapsed();
        if (left <= 0 || isCancelled(cancel))
            return false;
        process.waitForStarted(static_cast<int>(qMin<qint64>(left, pollMs)));
    }
    return process.error() != QProcess::FailedToStart;
}

QString decode(QTextCodec *codec, const QByteArray &bytes, bool cut)
{
    // With a state the codec keeps an incomplete last character to itself; without one it turns
    // it into a replacement character.
    QTextCodec::ConverterState state;
    return codec->toUnicode(bytes.constData(), bytes.size(), cut ? &state : nullptr);
}

} // namespace

ToolRunner::ToolRunner(const QString &toolsDir, const QString &libraryDir, const ToolLimits &limits)
    : m_toolsDir(toolsDir)
    , m_limits(limits)
{
    const QString libraries = QDir::cleanPath(libraryDir);
    if (libraryDir.isEmpty() || !QFileInfo(libraries).isDir())
        return;
    m_environment = QProcessEnvironment::systemEnvironment();
    const QString name = QStringLiteral("LD_LIBRARY_PATH");
    const QString earlier = m_environment.value(name);
    m_environment.insert(name,
                         earlier.isEmpty() ? libraries : libraries + QLatin1Char(':') + earlier);
}

ToolRunner &ToolRunner::shared()
{
    static ToolRunner runner(QCoreApplication::applicationDirPath() + QStringLiteral("/tools"),
                             QCoreApplication::applicationDirPath() +
                                 QStringLiteral("/../lib/tools"));
    return runner;
}

QString ToolRunner::resolveToolExecutable(const QString &tool)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto known = m_paths.constFind(tool);
        if (known != m_paths.constEnd())
            return *known;
    }
    QString path = QDir::cleanPath(m_toolsDir + QLatin1Char('/') + tool);
    if (!QFileInfo(path).isExecutable())
        path = QStandardPaths::findExecutable(tool);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_paths.insert(tool, path);
    return path;
}

ToolOutput ToolRunner::run(const QString &tool, const QStringList &arguments,
                           const RunLimits &runLimits, const std::atomic_bool *cancel)
{
    ToolOutput output;
    const QString program = resolveToolExecutable(tool);
    if (program.isEmpty() || isCancelled(cancel))
        return output;

    ToolProcess process;
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    if (!m_environment.isEmpty())
        process.setProcessEnvironment(m_environment);
    process.start(program, arguments, QIODevice::ReadOnly);
    if (!waitForStart(process, m_limits.startMs, cancel)) {
        killTool(process, m_limits.killWaitMs);
        return ToolOutput();
    }

    QElapsedTimer clock;
    clock.start();
    while (process.state() != QProcess::NotRunning) {
        const qint64 left = runLimits.runMs - clock.elapsed();
        if (left <= 0 || isCancelled(cancel)) {
            killTool(process, m_limits.killWaitMs);
            return ToolOutput();
        }
        process.waitForReadyRead(static_cast<int>(qMin<qint64>(left, pollMs)));
        takeOutput(process, runLimits.maxBytes, &output);
    }
    takeOutput(process, runLimits.maxBytes, &output);
    output.ended = process.exitStatus() == QProcess::NormalExit;
    output.exitCode = process.exitCode();
    return output;
}

QString ToolRunner::extractViaTool(const QString &tool, const QStringList &arguments,
                                   const RunLimits &runLimits, const std::atomic_bool *cancel)
{
    const ToolOutput output = run(tool, arguments, runLimits, cancel);
    if (!output.ended || output.exitCode != 0)
        return QString();
    return decodeToolText(output.bytes, output.cut);
}

QString decodeToolText(const QByteArray &bytes, bool cut)
{
    const QString utf8 = decode(QTextCodec::codecForMib(utf8Mib), bytes, cut);
    if (!utf8.contains(QChar::ReplacementCharacter))
        return utf8;
    const QString local = decode(QTextCodec::codecForLocale(), bytes, cut);
    return local.contains(QChar::ReplacementCharacter) ? utf8 : local;
}

QString decodePlainText(const QByteArray &bytes, bool cut)
{
    const QString utf8 = decode(QTextCodec::codecForMib(utf8Mib), bytes, cut);
    return utf8.isEmpty() ? decode(QTextCodec::codecForLocale(), bytes, cut) : utf8;
}

} // namespace search
