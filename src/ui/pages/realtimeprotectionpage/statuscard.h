#pragma once

#include "ui/pages/realtimeprotectionpage/statusrules.h"

#include <QFrame>

class QBoxLayout;
class QLabel;
class QPushButton;

namespace ui {
namespace common {
class StatBlock;
}
} // namespace ui

namespace realtimeprotection {

/// The state of the protection and its switch.
class StatusCard : public QFrame
{
    Q_OBJECT

public:
    explicit StatusCard(QWidget *parent = nullptr);

    void showStatus(const StatusView &view);
    /// The values of the last status stay.
    void showDisconnected(bool isRefused);
    /// Both buttons.
    void setControlsEnabled(bool enabled);
    void setToggleEnabled(bool enabled);

signals:
    void toggleRequested();
    void settingsRequested();

private:
    QBoxLayout *buildStatusRow();
    QBoxLayout *buildStats();
    void showHealth(Health health, const QString &text);

    QLabel *m_dot = nullptr;
    QLabel *m_text = nullptr;
    QPushButton *m_toggle = nullptr;
    QPushButton *m_settings = nullptr;
    ui::common::StatBlock *m_service = nullptr;
    ui::common::StatBlock *m_files = nullptr;
    ui::common::StatBlock *m_space = nullptr;
    ui::common::StatBlock *m_deployMode = nullptr;
};

} // namespace realtimeprotection
