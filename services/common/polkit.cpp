#include "common/polkit.h"

#include <QFile>
#include <QProcess>

namespace services {

namespace {

// Exit codes of pkcheck.
constexpr int kNotAuthorized = 1;
constexpr int kNoAgent = 2;
constexpr int kDismissed = 3;

/// In clock ticks since the boot: field 22, counted behind the program's name, which may hold
/// blanks and brackets.
QByteArray startTimeOf(pid_t pid)
{
    constexpr int kFieldBehindName = 19;
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray line = file.readAll();
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    return fields.value(kFieldBehindName);
}

QString reasonFor(int exitCode)
{
    switch (exitCode) {
    case kNotAuthorized:
        return QStringLiteral("没有管理员授权");
    case kNoAgent:
        return QStringLiteral("需要管理员授权，但当前会话无法弹出授权窗口");
    case kDismissed:
        return QStringLiteral("授权已取消");
    default:
        return QStringLiteral("授权服务不可用");
    }
}

} // namespace

QString polkitSubject(const core::ipc::Peer &peer)
{
    const QByteArray started = startTimeOf(peer.pid);
    if (peer.pid <= 0 || started.isEmpty())
        return QString();
    return QStringLiteral("%1,%2,%3").arg(peer.pid).arg(QString::fromLatin1(started)).arg(peer.uid);
}

Polkit::Polkit(const QString &checker, QObject *parent)
    : QObject(parent)
    , m_checker(checker)
{}

void Polkit::check(const QString &action, const core::ipc::Peer &peer, const Decide &decide)
{
    if (peer.uid == 0) {
        decide(true, QString());
        return;
    }
    const QString subject = polkitSubject(peer);
    if (subject.isEmpty()) {
        decide(false, QStringLiteral("请求授权的程序已退出"));
        return;
    }
    auto *const process = new QProcess(this);
    const auto finish = [process, decide](int exitCode) {
        process->disconnect();
        process->deleteLater();
        decide(exitCode == 0, exitCode == 0 ? QString() : reasonFor(exitCode));
    };
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [finish](int exitCode, QProcess::ExitStatus status) {
                finish(status == QProcess::NormalExit ? exitCode : -1);
            });
    connect(process, &QProcess::errorOccurred, this, [finish](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            finish(-1);
    });
    process->setStandardInputFile(QProcess::nullDevice());
    process->setStandardOutputFile(QProcess::nullDevice());
    process->setStandardErrorFile(QProcess::nullDevice());
    process->start(m_checker, {QStringLiteral("--action-id"), action, QStringLiteral("--process"),
                               subject, QStringLiteral("--allow-user-interaction")});
}

} // namespace services
