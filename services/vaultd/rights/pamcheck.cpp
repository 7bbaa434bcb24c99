#include "vaultd/rights/pamcheck.h"

#include "vaultd/failure.h"

#include <QFile>
#include <QProcess>
#include <QTimer>

#include <cstdlib>
#include <cstring>
#include <security/pam_appl.h>

namespace services::vaultd {

namespace {

const char *const kService = "morvane-vault";
constexpr qint64 kMaxPasswordBytes = 4096;
constexpr int kPatienceMs = 30000;

/// Answers the question for the password; other questions have no answer here.
int converse(int count, const struct pam_message **messages, struct pam_response **responses,
             void *data)
{
    if (count <= 0 || count > PAM_MAX_NUM_MSG)
        return PAM_CONV_ERR;
    // The modules free it.
    auto *const answers =
        static_cast<struct pam_response *>(std::calloc(size_t(count), sizeof(pam_response)));
    if (!answers)
        return PAM_BUF_ERR;
    for (int i = 0; i < count; ++i) {
        const int style = messages[i]->msg_style;
        if (style == PAM_PROMPT_ECHO_OFF) {
            answers[i].resp = ::strdup(static_cast<const char *>(data));
        } else if (style != PAM_TEXT_INFO && style != PAM_ERROR_MSG) {
            for (int j = 0; j < i; ++j)
                std::free(answers[j].resp);
            std::free(answers);
            return PAM_CONV_ERR;
        }
    }
    *responses = answers;
    return PAM_SUCCESS;
}

} // namespace

PasswordCheck pamCheck(const QString &program, QObject *owner)
{
    return [program, owner](const QString &user, const QString &password,
                            const std::function<void(bool)> &done) {
        auto *const process = new QProcess(owner);
        const auto finish = [process, done](bool isRight) {
            process->disconnect();
            process->deleteLater();
            done(isRight);
        };
        QObject::connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished),
                         process, [finish](int exitCode, QProcess::ExitStatus status) {
                             finish(status == QProcess::NormalExit && exitCode == 0);
                         });
        QObject::connect(process, &QProcess::errorOccurred, process,
                         [finish](QProcess::ProcessError error) {
                             if (error == QProcess::FailedToStart)
                                 finish(false);
                         });
        QTimer::singleShot(kPatienceMs, process, [process] { process->kill(); });
        process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process->setStandardOutputFile(QProcess::nullDevice());
        process->start(program, {QStringLiteral("--check-password"), user});
        process->write(password.toUtf8());
        process->closeWriteChannel();
    };
}

bool isRightPassword(const QByteArray &user, int passwordInput, QString *error)
{
    QFile input;
    if (!input.open(passwordInput, QIODevice::ReadOnly))
        return fail(error, QStringLiteral("no password"));
    QByteArray password;
    for (QByteArray piece; !(piece = input.read(kMaxPasswordBytes)).isEmpty();)
        password += piece;
    if (password.isEmpty() || password.size() > kMaxPasswordBytes || password.contains('\0'))
        return fail(error, QStringLiteral("no password"));

    const struct pam_conv conversation = {converse, password.data()};
    pam_handle_t *handle = nullptr;
    int code = ::pam_start(kService, user.constData(), &conversation, &handle);
    if (code == PAM_SUCCESS)
        code = ::pam_authenticate(handle, PAM_DISALLOW_NULL_AUTHTOK);
    if (code == PAM_SUCCESS)
        code = ::pam_acct_mgmt(handle, PAM_DISALLOW_NULL_AUTHTOK);
    if (code != PAM_SUCCESS)
        fail(error, QString::fromLocal8Bit(::pam_strerror(handle, code)));
    if (handle)
        ::pam_end(handle, code);
    ::explicit_bzero(password.data(), size_t(password.size()));
    return code == PAM_SUCCESS;
}

} // namespace services::vaultd
