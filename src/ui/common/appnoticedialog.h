#pragma once

#include "ui/common/framelessdialog.h"

class QBoxLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QScrollArea;

namespace ui {
namespace common {

class WrapLabel;

/// The one dialog through which messages reach the user. The static functions run it modally and
/// block in a nested event loop. Object names: NoticeIconWrap, NoticeTitle, NoticeMessage,
/// NoticeDetailRow, NoticeDetailEdit, NoticeDetailCopyBtn, NoticeOkBtn, NoticeCancelBtn.
class AppNoticeDialog : public FramelessDialog
{
    Q_OBJECT

public:
    enum NoticeType { Success = 0, Information = 1, Warning = 2, Error = 3 };

    explicit AppNoticeDialog(QWidget *parent = nullptr);

    void setNoticeType(NoticeType type);
    void setTitleText(const QString &title);
    void setMessageText(const QString &message);
    /// An empty detail hides the row.
    void setDetailText(const QString &detail);
    void setConfirmText(const QString &text);
    /// Adds the cancel button. With it, Enter cancels, whatever the notice's type: a question that
    /// comes while one types confirms nothing.
    void setCancelText(const QString &text);
    /// Draws the confirm button in red, as one that destroys something.
    void markDestructive();

    static void showSuccess(QWidget *parent, const QString &title, const QString &message,
                            const QString &detail = QString(),
                            const QString &confirmText = QString());
    static void showInfo(QWidget *parent, const QString &title, const QString &message,
                         const QString &detail = QString(), const QString &confirmText = QString());
    static void showWarning(QWidget *parent, const QString &title, const QString &message,
                            const QString &detail = QString(),
                            const QString &confirmText = QString());
    static void showError(QWidget *parent, const QString &title, const QString &message,
                          const QString &detail = QString(),
                          const QString &confirmText = QString());
    /// True only if the user confirmed; closing the window or Esc is a no.
    [[nodiscard]] static bool confirm(QWidget *parent, const QString &title, const QString &message,
                                      const QString &confirmText = QString(),
                                      const QString &cancelText = QString(),
                                      NoticeType type = Warning);
    /// A warning that asks before something is destroyed: the button says what it does, in red, and
    /// neither has the focus nor is the default.
    [[nodiscard]] static bool confirmDestruction(QWidget *parent, const QString &title,
                                                 const QString &message, const QString &verb);

protected:
    void showEvent(QShowEvent *event) override;

private:
    void buildText(QBoxLayout *column);
    void buildDetailRow(QBoxLayout *column);
    void refreshIconAndAccent();
    void fitMessage();
    void chooseDefaultButton();

    NoticeType m_type = Information;
    QLabel *m_icon = nullptr;
    WrapLabel *m_title = nullptr;
    WrapLabel *m_message = nullptr;
    QScrollArea *m_messageArea = nullptr;
    QWidget *m_detailRow = nullptr;
    QLineEdit *m_detail = nullptr;
    QPushButton *m_copy = nullptr;
    QPushButton *m_confirm = nullptr;
    QPushButton *m_cancel = nullptr;
};

} // namespace common
} // namespace ui
