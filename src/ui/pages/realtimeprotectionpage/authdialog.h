#pragma once

#include "ui/common/framelessdialog.h"

#include <QPointer>

class QLabel;
class QLineEdit;
class QPushButton;
class VaultController;

/// Asks for the current user's password and has the vault service check it; accepted once that said
/// yes. The password stays in the field and in the request.
class AuthDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    /// `timeoutMs`: how long an answer is waited for. The dialog stands over the middle of `page`.
    AuthDialog(VaultController *controller, int timeoutMs, QWidget *page);

protected:
    void showEvent(QShowEvent *event) override;

private:
    enum class Outcome { Accepted, Refused, NoConnection, NoAnswer, Gone };

    void buildContent();
    void verify();
    /// Waits in a nested event loop. Gone: the dialog was closed or destroyed meanwhile.
    Outcome askService();
    void setVerifying(bool verifying);
    void showError(const QString &text);

    QPointer<VaultController> m_controller;
    int m_timeoutMs;
    QLineEdit *m_password = nullptr;
    QLabel *m_error = nullptr;
    QPushButton *m_confirm = nullptr;
};
