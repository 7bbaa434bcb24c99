#pragma once

#include "ui/common/framelessdialog.h"

class QLabel;
class QProgressBar;
class QPushButton;

namespace ui {
namespace common {
class WrapLabel;
}
} // namespace ui

/// The one screen of a mandatory update. It cannot be dismissed while the update is under way:
/// only setAllowClose() lets Esc, Enter and the window manager close it.
class ForcedUpdateDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    explicit ForcedUpdateDialog(QWidget *parent = nullptr);

    /// An empty text means a general one; `busy`: without measure.
    void setStageText(const QString &text, bool busy);
    /// Bytes; a total below 1 means unknown.
    void setDownloadProgress(qint64 received, qint64 total);
    void showFailureState(const QString &text);
    void showPreparingExitState(const QString &text);
    void setAllowClose(bool allow) { m_allowClose = allow; }

    void reject() override;

signals:
    void retryRequested();
    void exitRequested();

private:
    void setStage(const QString &text, const QString &fallback);
    void setBar(bool busy, const QString &format);
    void setButtonsVisible(bool visible);

    ui::common::WrapLabel *m_stage;
    QProgressBar *m_bar;
    QLabel *m_barText;
    QPushButton *m_exit;
    QPushButton *m_retry;
    bool m_allowClose = false;
};
