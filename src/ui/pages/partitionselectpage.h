#pragma once

#include "ui/common/models/partitionmodels.h"

#include <QJsonObject>
#include <QWidget>

class PartitionCardWidget;
class QHBoxLayout;
class QLabel;
class QPushButton;
class QScrollArea;
class QStackedWidget;
class QVBoxLayout;

namespace ui {
namespace common {
class ElidedLabel;
class SegmentedToggle;
class WrapLabel;
} // namespace common
} // namespace ui

/// First step of a recovery: the machine's disks as cards, one of which is chosen, and how to scan
/// it. The page starts nothing itself and asks no service. It begins with the sample disks.
class PartitionSelectPage : public QWidget
{
    Q_OBJECT

public:
    explicit PartitionSelectPage(QWidget *parent = nullptr);

    /// Shows these disks and chooses the first partition that is marked as selected, or else the
    /// first one. The disks that are shown already stay as they are, with what the user chose.
    void setDiskGroups(const QVector<ui::common::models::DiskGroup> &groups);
    /// Shows the sample disks, and a line that tells them from real ones: `reason`, which defaults
    /// to the service being out of reach.
    void showSampleGroups(const QString &reason = QString());

    /// What the toolbar names as chosen; "无可用分区" where there is nothing to choose.
    QString selectedDevicePath() const;
    /// "quick" or "deep".
    QString selectedScanMode() const;
    /// What the settings dialog was accepted with; empty until then.
    QJsonObject advancedScanSettings() const { return m_advancedSettings; }

signals:
    void requestOpenScanResults();
    /// The user wants the disks read anew.
    void requestRefresh();

private:
    QHBoxLayout *buildHeader();
    QWidget *buildGroupsArea();
    QWidget *buildToolbar();
    QPushButton *buildSettingsButton();

    void showGroups(const QVector<ui::common::models::DiskGroup> &groups);
    void rebuildDiskCards(const QVector<ui::common::models::DiskGroup> &groups);
    void bindPartitionCardSelection();
    void select(PartitionCardWidget *chosen);
    void step(Qt::Key key, PartitionCardWidget *from);
    void openSettings();

    QVector<ui::common::models::DiskGroup> m_groups;
    QVector<PartitionCardWidget *> m_cards;
    PartitionCardWidget *m_selectedCard = nullptr; ///< One of the cards, or null without any.
    QJsonObject m_advancedSettings;
    ui::common::WrapLabel *m_sampleNotice = nullptr;
    QStackedWidget *m_views = nullptr; ///< The disks, or the empty state.
    QScrollArea *m_scroll = nullptr;
    QVBoxLayout *m_groupsLayout = nullptr;
    ui::common::ElidedLabel *m_selectedDevice = nullptr;
    ui::common::SegmentedToggle *m_mode = nullptr;
};
