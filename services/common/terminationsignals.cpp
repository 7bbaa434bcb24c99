#include "common/terminationsignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace services {

namespace {

int signalPipe[2] = {-1, -1};

// Runs inside the interrupted thread, where almost nothing may be called but write().
void onSignal(int)
{
    const int code = errno;
    const char byte = 1;
    if (::write(signalPipe[1], &byte, 1) < 0) {
        // The pipe is full: an earlier signal is still to be handled.
    }
    errno = code;
}

} // namespace

bool quitOnTerminationSignals(QString *error)
{
    struct sigaction action
    {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART | int(SA_RESETHAND);
    ::sigemptyset(&action.sa_mask);
    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0 ||
        ::sigaction(SIGTERM, &action, nullptr) != 0 || ::sigaction(SIGINT, &action, nullptr) != 0) {
        if (error)
            *error =
                QStringLiteral("无法处理终止信号：%1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    auto *const notifier =
        new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [notifier] {
        notifier->setEnabled(false);
        QCoreApplication::quit();
    });
    return true;
}

} // namespace services
