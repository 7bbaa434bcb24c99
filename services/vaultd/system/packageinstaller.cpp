#include "vaultd/system/packageinstaller.h"

#include "core/descriptor.h"
#include "vaultd/system/command.h"
#include "vaultd/system/packagefile.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <sys/stat.h>

namespace services::vaultd {

namespace {

constexpr int kWatchMs = 200;
const QString kAction = QStringLiteral("org.example.morvane.install-package");

/// What is called for the package: the manager that also gets what the package needs, if it is
/// there.
QStringList managerCommand(const QString &package)
{
    if (!QStandardPaths::findExecutable(QStringLiteral("apt-get")).isEmpty())
        return {QStringLiteral("apt-get"), QStringLiteral("-y"),
                QStringLiteral("-o"),      QStringLiteral("APT::Status-Fd=1"),
                QStringLiteral("-o"),      QStringLiteral("APT::Sandbox::User=root"),
                QStringLiteral("-o"),      QStringLiteral("DPkg::Lock::Timeout=60"),
                QStringLiteral("-o"),      QStringLiteral("Dpkg::Options::=--force-confold"),
                QStringLiteral("install"), package};
    return {QStringLiteral("dpkg"), QStringLiteral("--force-confold"), QStringLiteral("-i"),
            package};
}

/// A unit of its own: the service is replaced by the package, and is itself kept from much that a
/// package manager does.
QStringList asOwnUnit(const QStringList &command, const QString &log)
{
    return QStringList{QStringLiteral("systemd-run"),
                       QStringLiteral("--quiet"),
                       QStringLiteral("--wait"),
                       QStringLiteral("--collect"),
                       QStringLiteral("--setenv=DEBIAN_FRONTEND=noninteractive"),
                       QStringLiteral("--setenv=LC_ALL=C.UTF-8"),
                       QStringLiteral("--property=StandardOutput=append:") + log,
                       QStringLiteral("--property=StandardError=append:") + log} +
           command;
}

} // namespace

PackageInstaller::PackageInstaller(const QString &folder)
    : m_folder(folder)
{
    m_jobs = new Mailbox;
    m_thread.start(m_jobs, QStringLiteral("package"));
    m_watch.setInterval(kWatchMs);
    connect(&m_watch, &QTimer::timeout, this, &PackageInstaller::readLog);
}

PackageInstaller::~PackageInstaller()
{
    m_stop = true;
    m_thread.stop();
    if (m_manager) {
        // Half an installation is worse than one that nobody hears of.
        m_manager->disconnect();
        m_manager->waitForFinished(-1);
    }
}

QString PackageInstaller::copyPath() const
{
    return m_folder + QStringLiteral("/package.deb");
}

QString PackageInstaller::logPath() const
{
    return m_folder + QStringLiteral("/install.log");
}

void PackageInstaller::install(const QString &path, const core::ipc::Peer &peer,
                               const Progress &progress, const Done &done)
{
    Result refusal;
    UserIdentity user;
    core::Descriptor package(-1);
    if (m_done)
        refusal.message = QStringLiteral("已有安装任务正在进行");
    else if (UserIdentity::find(peer.uid, &user, &refusal.message))
        package.reset(openPackage(path, user, &refusal.message));
    if (!package.isOpen()) {
        done(refusal);
        return;
    }
    m_progress = progress;
    m_done = done;
    m_sha256.clear();
    m_lastLine.clear();
    m_logRead = 0;
    const auto held = std::make_shared<core::Descriptor>(package.release());
    m_jobs->post([this, held, peer] {
        QString error;
        QString sha256;
        ::mkdir(QFile::encodeName(m_folder).constData(), 0700);
        QFile::remove(copyPath());
        QFile::remove(logPath());
        const bool isCopied = copyPackage(held->get(), copyPath(), m_stop, &sha256, &error);
        m_inbox.post([this, isCopied, peer, sha256, error] {
            if (isCopied)
                onCopied(peer, sha256);
            else
                finish(false, error);
        });
    });
}

void PackageInstaller::onCopied(const core::ipc::Peer &peer, const QString &sha256)
{
    m_sha256 = sha256;
    qInfo() << "[PackageInstaller] user" << peer.uid << "asks to install" << sha256;
    m_polkit.check(kAction, peer, [this](bool isAllowed, const QString &reason) {
        if (isAllowed)
            startManager();
        else
            finish(false, reason);
    });
}

void PackageInstaller::startManager()
{
    QStringList command = managerCommand(copyPath());
    m_manager = std::make_unique<QProcess>();
    if (hasSystemCallFilter()) {
        command = asOwnUnit(command, logPath());
    } else {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("DEBIAN_FRONTEND"), QStringLiteral("noninteractive"));
        environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
        m_manager->setProcessEnvironment(environment);
        m_manager->setProcessChannelMode(QProcess::MergedChannels);
        m_manager->setStandardOutputFile(logPath(), QIODevice::Append);
    }
    m_manager->setStandardInputFile(QProcess::nullDevice());
    connect(m_manager.get(), QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int exitCode, QProcess::ExitStatus status) {
                readLog();
                finish(status == QProcess::NormalExit && exitCode == 0, m_lastLine);
            });
    connect(m_manager.get(), &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            finish(false, QStringLiteral("无法启动系统的软件包管理器"));
    });
    m_watch.start();
    m_manager->start(command.first(), command.mid(1));
}

/// Whole lines only; the rest comes with the next look.
void PackageInstaller::readLog()
{
    QFile log(logPath());
    if (!log.open(QIODevice::ReadOnly) || !log.seek(m_logRead))
        return;
    const QByteArray text = log.readAll();
    const int end = text.lastIndexOf('\n') + 1;
    m_logRead += end;
    const QList<QByteArray> lines = text.left(end).split('\n');
    for (const QByteArray &line : lines) {
        int percent = 0;
        QString message;
        if (parseStatusLine(line, &percent, &message)) {
            if (m_progress)
                m_progress(percent, message);
        } else if (!line.trimmed().isEmpty()) {
            m_lastLine = QString::fromUtf8(line).trimmed();
        }
    }
}

void PackageInstaller::finish(bool isInstalled, const QString &message)
{
    m_watch.stop();
    QFile::remove(copyPath());
    if (m_manager) {
        m_manager->disconnect();
        m_manager.release()->deleteLater();
    }
    if (isInstalled && m_progress)
        m_progress(100, message);
    const Done done = m_done;
    m_done = Done();
    m_progress = Progress();
    done({isInstalled, message, m_sha256});
}

bool parseStatusLine(const QByteArray &line, int *percent, QString *text)
{
    const QList<QByteArray> fields = line.split(':');
    if (fields.size() < 4 || (fields.at(0) != "pmstatus" && fields.at(0) != "dlstatus"))
        return false;
    bool isNumber = false;
    const double number = fields.at(2).toDouble(&isNumber);
    *percent = qBound(0, int(number), 100);
    *text = QString::fromUtf8(fields.mid(3).join(':')).trimmed();
    return isNumber;
}

} // namespace services::vaultd
