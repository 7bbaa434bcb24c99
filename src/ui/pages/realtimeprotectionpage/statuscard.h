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
    /// A line with a way to the settings, until there is room again. Bytes.
    void showSpaceWarning(qint64 usedBytes, qint64 maxBytes);
    /// What is used, or the limit, has changed.
    void updateSpaceWarning(qint64 usedBytes);
    void updateSpaceLimit(qint64 maxBytes);
    /// Both buttons.
    void setControlsEnabled(bool enabled);
    void setToggleEnabled(bool enabled);

signals:
    void toggleRequested();
    void settingsRequested();

private:
    QBoxLayout *buildStatusRow();
    QBoxLayout *buildStats();
    QWidget *buildSpaceWarning();
    void showHealth(Health health, const QString &text);

    QFrame *m_spaceWarning = nullptr;
    QLabel *m_spaceText = nullptr;
    qint64 m_usedBytes = 0;
    qint64 m_maxBytes = 0;
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
