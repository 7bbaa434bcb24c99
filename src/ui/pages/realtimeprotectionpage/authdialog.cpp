#include "ui/pages/realtimeprotectionpage/authdialog.h"

#include "ui/common/keptroom.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "vault/vaultcontroller.h"

#include <QEventLoop>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace {

// Base pixels.
constexpr int kWidth = 360;
constexpr int kHeight = 220;
constexpr int kButtonWidth = 80;

} // namespace

AuthDialog::AuthDialog(VaultController *controller, int timeoutMs, QWidget *page)
    : FramelessDialog(page)
    , m_controller(controller)
    , m_timeoutMs(timeoutMs)
{
    setObjectName(QStringLiteral("AuthDialog"));
    setWindowTitle(tr("身份验证"));
    buildContent();
    m_password->setFocus();
}

void AuthDialog::buildContent()
{
    auto *line = new QLabel(tr("请输入当前用户密码"), this);
    line->setObjectName(QStringLiteral("AuthPrompt"));
    m_password = new QLineEdit(this);
    m_password->setObjectName(QStringLiteral("AuthPassword"));
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setPlaceholderText(tr("密码"));
    line->setBuddy(m_password);
    m_error = new QLabel(this);
    m_error->setObjectName(QStringLiteral("AuthError"));
    m_error->setProperty("tone", QStringLiteral("error"));
    ui::common::keepRoomWhenHidden(m_error);
    m_error->hide();
    auto *column = new QVBoxLayout;
    column->setSpacing(metrics::kFieldGap / 2);
    column->addWidget(line);
    column->addWidget(m_password);
    column->addWidget(m_error);
    contentLayout()->addLayout(column);

    QPushButton *cancel = addButton(tr("取消"));
    cancel->setObjectName(QStringLiteral("AuthCancel"));
    // The default button: Return in the field presses it.
    m_confirm = addButton(tr("确定"), QStringLiteral("primary"));
    m_confirm->setObjectName(QStringLiteral("AuthConfirm"));
    for (QPushButton *button : {cancel, m_confirm})
        button->setFixedWidth(ThemeColors::current().fontPx(kButtonWidth));
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_confirm, &QPushButton::clicked, this, &AuthDialog::verify);
}

void AuthDialog::showEvent(QShowEvent *event)
{
    FramelessDialog::showEvent(event);
    const ThemeColors &colors = ThemeColors::current();
    setFixedSize(colors.fontPx(kWidth), qMax(kHeight, layout()->totalMinimumSize().height()));
    const QWidget *page = parentWidget();
    move(page->mapToGlobal(page->rect().center()) - rect().center());
}

void AuthDialog::verify()
{
    if (m_password->text().isEmpty()) {
        showError(tr("请输入密码"));
        return;
    }
    setVerifying(true);
    const Outcome outcome = askService();
    if (outcome == Outcome::Gone)
        return;
    setVerifying(false);
    if (outcome == Outcome::Accepted) {
        m_password->clear();
        accept();
    } else if (outcome == Outcome::NoAnswer) {
        showError(tr("验证超时，请重试"));
    } else if (outcome == Outcome::NoConnection) {
        showError(tr("守护进程未连接，无法验证"));
    } else {
        showError(tr("密码错误"));
        m_password->selectAll();
        m_password->setFocus();
    }
}

AuthDialog::Outcome AuthDialog::askService()
{
    if (!m_controller)
        return Outcome::NoConnection;
    const QPointer<AuthDialog> self(this);
    QEventLoop loop;
    Outcome outcome = Outcome::NoAnswer;
    // All of these go with the loop, so that a late answer finds no listener.
    connect(m_controller, &VaultController::authenticateCompleted, &loop,
            [&loop, &outcome](bool success, const QString &) {
                outcome = success ? Outcome::Accepted : Outcome::Refused;
                loop.quit();
            });
    connect(m_controller, &QObject::destroyed, &loop, &QEventLoop::quit);
    connect(this, &QObject::destroyed, &loop, &QEventLoop::quit);
    connect(this, &QDialog::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(m_timeoutMs, &loop, &QEventLoop::quit);
    m_controller->authenticate(qEnvironmentVariable("USER"), m_password->text());
    // Without a connection the answer came inside the call.
    if (outcome == Outcome::NoAnswer)
        loop.exec();
    if (!self || !isVisible())
        return Outcome::Gone;
    // A lost link answers no as well, which says nothing about the password.
    const bool isLinked = m_controller && m_controller->isConnected();
    return outcome == Outcome::Accepted || isLinked ? outcome : Outcome::NoConnection;
}

void AuthDialog::setVerifying(bool verifying)
{
    m_confirm->setEnabled(!verifying);
    m_confirm->setText(verifying ? tr("验证中...") : tr("确定"));
    if (verifying)
        m_error->hide();
}

void AuthDialog::showError(const QString &text)
{
    m_error->setText(text);
    m_error->show();
}
