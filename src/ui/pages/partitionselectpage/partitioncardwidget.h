#pragma once

#include "ui/common/models/partitionmodels.h"

#include <QFrame>

class QHBoxLayout;
class QVBoxLayout;

namespace ui {
namespace common {
class IconWidget;
}
} // namespace ui

/// One partition as a card that can be chosen. Its look follows the properties `selected` and
/// `dashed`; its size grows with the font scale.
class PartitionCardWidget : public QFrame
{
    Q_OBJECT

public:
    explicit PartitionCardWidget(const ui::common::models::PartitionEntry &entry,
                                 QWidget *parent = nullptr);

    void setSelected(bool selected);
    QString devicePath() const { return m_devicePath; }
    QString fsType() const { return m_fsType; }

signals:
    /// A left click that ends inside the card, or Space or Enter on it.
    void clicked(const QString &devicePath, PartitionCardWidget *card);
    /// An arrow key on the card.
    void stepRequested(Qt::Key key, PartitionCardWidget *card);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    QHBoxLayout *buildHeader();
    QHBoxLayout *buildSizes();
    QWidget *buildUsageBar();
    QWidget *buildFsTypeBadge(const QString &fs);

    ui::common::models::PartitionEntry m_entry;
    QString m_devicePath;
    QString m_fsType;
    bool m_selected;
    ui::common::IconWidget *m_icon;
};
