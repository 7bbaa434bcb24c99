#pragma once

#include <QWidget>

namespace ui {
namespace common {
class ElidedLabel;
}
} // namespace ui

namespace wechatclean {

/// Title, what the page is for, one line of state, and the toolbar. Object names:
/// WechatSettingsButton, WechatHistoryButton, WechatStatus.
class PageHeader : public QWidget
{
    Q_OBJECT

public:
    explicit PageHeader(QWidget *parent = nullptr);

    void setStatus(const QString &text);
    /// Leaves the room of what the page is for to a long list.
    void setBrief(bool isBrief);

signals:
    void settingsRequested();
    void historyRequested();

private:
    ui::common::ElidedLabel *m_status;
    QWidget *m_intro;
};

} // namespace wechatclean
