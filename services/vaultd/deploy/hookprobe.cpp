#include "vaultd/deploy/hookprobe.h"

#include "common/text.h"
#include "vaultd/failure.h"
#include "vaultd/system/command.h"
#include "vaultd/users/uservault.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <cerrno>
#include <fcntl.h>
#include <grp.h>
#include <unistd.h>

namespace services::vaultd {

namespace {

constexpr int kProgramPatienceMs = 10000;
constexpr int kLookEveryMs = 50;
constexpr int kMaxLooks = 100;

const QString kPrefix = QStringLiteral(".morvane-probe-");

/// Starts as another user. Nothing but system calls between fork and exec.
class UserProcess : public QProcess
{
public:
    explicit UserProcess(const UserIdentity &user)
        : m_user(user)
        , m_changes(user.uid != ::geteuid())
    {}

protected:
    void setupChildProcess() override
    {
        if (m_changes && (!setThreadGroups(m_user.groups) || ::setgid(m_user.gid) != 0 ||
                          ::setuid(m_user.uid) != 0))
            ::_exit(126);
    }

private:
    UserIdentity m_user;
    bool m_changes;
};

/// A protected folder that the user can write, and a name there that is protected.
bool findPlace(const UserVault &vault, QString *folder, QString *suffix, QString *error)
{
    const VaultConfig &config = vault.settings().config();
    if (config.protectedExtensions.isEmpty())
        return fail(error, QStringLiteral("没有选择保护类型"));
    *suffix = QLatin1Char('.') + config.protectedExtensions.first();
    const ActAs rights(vault.user());
    if (!rights.isActive(error))
        return false;
    for (const QString &dir : config.protectedDirs) {
        const QString real = QFileInfo(dir).canonicalFilePath();
        // access(2) would go by the service's own rights.
        if (!real.isEmpty() && QFileInfo(real).isDir() &&
            ::faccessat(AT_FDCWD, QFile::encodeName(real).constData(), W_OK | X_OK, AT_EACCESS) ==
                0) {
            *folder = real;
            return true;
        }
    }
    return fail(error, QStringLiteral("保护目录都不存在或不可写"));
}

} // namespace

HookProbe::HookProbe()
{
    m_look.setInterval(kLookEveryMs);
    connect(&m_look, &QTimer::timeout, this, &HookProbe::look);
}

HookProbe::~HookProbe()
{
    m_done = Done();
    if (m_program) {
        m_program->disconnect();
        m_program->kill();
        m_program->waitForFinished(kProgramPatienceMs);
        removeFile();
    }
}

void HookProbe::run(UserVault *vault, const QByteArray &preload, const Done &done)
{
    m_vault = vault;
    m_done = done;
    QString error;
    if (makeFile(&error))
        startProgram(preload);
    else
        QTimer::singleShot(0, this, [this, error] { finish(false, error); });
}

bool HookProbe::isProbe(const QString &fileName)
{
    return fileName.startsWith(kPrefix);
}

bool HookProbe::makeFile(QString *error)
{
    QString suffix;
    if (!findPlace(*m_vault, &m_folder, &suffix, error))
        return false;
    m_name = kPrefix + newId() + suffix;
    const ActAs rights(m_vault->user());
    const QString path = QDir(m_folder).filePath(m_name);
    const int fd = rights.isActive(error)
                       ? ::open(QFile::encodeName(path).constData(),
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)
                       : -1;
    const char text[] = "morvane\n";
    const bool isMade = fd >= 0 && ::write(fd, text, sizeof text - 1) == ssize_t(sizeof text - 1);
    const int code = errno;
    if (fd >= 0)
        ::close(fd);
    return isMade || fail(error, QStringLiteral("无法在保护目录中创建测试文件"), code);
}

void HookProbe::removeFile()
{
    QString error;
    const ActAs rights(m_vault->user());
    if (rights.isActive(&error))
        ::unlink(QFile::encodeName(QDir(m_folder).filePath(m_name)).constData());
}

void HookProbe::startProgram(const QByteArray &preload)
{
    const UserIdentity &user = m_vault->user();
    QString program = QStringLiteral("/bin/rm");
    QStringList arguments{QStringLiteral("-f"), QStringLiteral("--"), m_name};
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("PATH"), QStringLiteral("/usr/sbin:/usr/bin:/sbin:/bin"));
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    const QString preloaded = QStringLiteral("LD_PRELOAD=") + QFile::decodeName(preload);
    // The hook does nothing in a program with a filter on system calls, and filters are inherited.
    if (hasSystemCallFilter()) {
        m_program = std::make_unique<QProcess>();
        QStringList wrapped{QStringLiteral("--quiet"),
                            QStringLiteral("--wait"),
                            QStringLiteral("--collect"),
                            QStringLiteral("--pipe"),
                            QStringLiteral("--uid=%1").arg(user.uid),
                            QStringLiteral("--gid=%1").arg(user.gid),
                            QStringLiteral("--working-directory=") + m_folder,
                            QStringLiteral("--setenv=LC_ALL=C")};
        if (!preload.isEmpty())
            wrapped.append(QStringLiteral("--setenv=") + preloaded);
        arguments = wrapped + QStringList{QStringLiteral("--"), program} + arguments;
        program = QStringLiteral("systemd-run");
    } else {
        m_program = std::make_unique<UserProcess>(user);
        if (!preload.isEmpty())
            environment.insert(QStringLiteral("LD_PRELOAD"), QFile::decodeName(preload));
    }
    m_program->setProcessEnvironment(environment);
    m_program->setWorkingDirectory(m_folder);
    m_program->setProcessChannelMode(QProcess::MergedChannels);
    m_program->setStandardInputFile(QProcess::nullDevice());
    connect(m_program.get(), QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &HookProbe::onProgramEnded);
    connect(m_program.get(), &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            finish(false, QStringLiteral("无法启动测试程序"));
    });
    QTimer::singleShot(kProgramPatienceMs, m_program.get(),
                       [program = m_program.get()] { program->kill(); });
    m_program->start(program, arguments);
}

void HookProbe::onProgramEnded()
{
    // A library that cannot be loaded is passed over with a message.
    const QString said = QString::fromLocal8Bit(m_program->readAll()).trimmed();
    if (m_program->exitStatus() != QProcess::NormalExit || m_program->exitCode() != 0)
        finish(false, QStringLiteral("加载预加载库的程序异常退出：%1").arg(said));
    else if (!said.isEmpty())
        finish(false, QStringLiteral("预加载库无法加载：%1").arg(said));
    else {
        m_looks = 0;
        m_look.start();
    }
}

void HookProbe::look()
{
    const FileIndex::Page found = m_vault->index().page(1, 0, m_name);
    if (!found.files.isEmpty()) {
        const QString id = found.files.first().toObject().value(QLatin1String("id")).toString();
        m_vault->thread().remove({id}, VaultThread::OnDone());
        finish(true, QString());
    } else if (++m_looks > kMaxLooks) {
        finish(false, QStringLiteral("测试文件被删除后没有进入保护区"));
    } else {
        m_vault->refresh();
    }
}

void HookProbe::finish(bool isKept, const QString &error)
{
    m_look.stop();
    if (m_program) {
        m_program->disconnect();
        m_program.release()->deleteLater();
    }
    if (!m_folder.isEmpty())
        removeFile();
    if (!isKept)
        qWarning() << "[HookProbe]" << error;
    const Done done = std::move(m_done);
    m_done = Done();
    if (done)
        done(isKept, error);
}

} // namespace services::vaultd
